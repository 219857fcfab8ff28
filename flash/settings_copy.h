// settings_copy.h - the two copies of the settings archive in flash.
//
// The layout of a copy is described in doc/settings-copy.md.
#ifndef KTCOMM_FLASH_SETTINGS_COPY_H
#define KTCOMM_FLASH_SETTINGS_COPY_H

#include <stddef.h>

#include "base/paths.h"
#include "flash/copy_header.h"

namespace kt {

struct SettingsCopy {
  const char* partition;
  const char* archive;  // where it is put while it is read back
  const char* label;    // in traces
};

inline constexpr SettingsCopy kNormal = {paths::kNormalCopy, paths::kNormalArchive, "MTD_CONF0"};
inline constexpr SettingsCopy kBackup = {paths::kBackupCopy, paths::kBackupArchive, "MTD_CONF1"};

// Results of the steps below.
enum CopyResult : int {
  kCopyDone = 0,
  kCopyGivenUp = -1,     // three attempts failed, only the id was written
  kCopyBroken = -2,      // read: wrong header or digest; written: the header was not
  kCopyUnreachable = -3  // the device or the temporary file failed
};

// Reads a copy into its temporary archive and checks the digest. On failure
// (kCopyBroken, kCopyUnreachable) no temporary archive is left.
[[nodiscard]] int kt_flash_get_env_from_flash(const SettingsCopy& copy);

// Writes the archive file behind the header's place in the copy.
[[nodiscard]] bool fl_write_file_to_flash(const char* archive, const SettingsCopy& copy);

// True when the archive file equals what the copy holds behind its header.
[[nodiscard]] bool compare_file_content(const char* archive, const SettingsCopy& copy);

// Writes the first `size` bytes of the header.
[[nodiscard]] bool write_copy_header(const CopyHeader& header, size_t size,
                                     const SettingsCopy& copy);

// Writes archive and header, with up to three attempts at the archive.
[[nodiscard]] int fl_conf_ram2flash(const char* archive, const CopyHeader& header,
                                    const SettingsCopy& copy);

// False when the copy's partition is known to be too small for an archive of
// that length. A plain file has a size to keep to only when it is whole units
// of 64 KiB, as partitions are; any other one grows.
[[nodiscard]] bool archive_fits(unsigned length, const SettingsCopy& copy);

}  // namespace kt

#endif
