// settings_archive.h - the settings directory packed for flash.
#ifndef KTCOMM_FLASH_SETTINGS_ARCHIVE_H
#define KTCOMM_FLASH_SETTINGS_ARCHIVE_H

#include "base/string_buffer.h"
#include "flash/settings_copy.h"

namespace kt {

// A gzip tar archive of the settings directory beside it on the RAM disk,
// deleted when the object dies.
class SettingsArchive {
 public:
  enum Flags { kZcf, kCzf };  // the order of tar's letters in the command

  SettingsArchive();
  SettingsArchive(const SettingsArchive&) = delete;
  SettingsArchive& operator=(const SettingsArchive&) = delete;
  ~SettingsArchive() { remove(); }

  [[nodiscard]] bool pack(Flags flags);

  // Opens the archive and sets id and length of the header; false when it is
  // missing, empty or over-long.
  [[nodiscard]] bool measure();
  // Sets the digest of the header.
  [[nodiscard]] bool digest();

  [[nodiscard]] const char* path() const { return path_.c_str(); }
  [[nodiscard]] const CopyHeader& header() const { return header_; }
  void remove();

 private:
  StringBuffer<31> name_;
  StringBuffer<63> path_;
  CopyHeader header_ = {};
};

}  // namespace kt

#endif
