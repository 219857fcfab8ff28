// settings_image.h - copies of the settings in flash, made by hand.
#ifndef KTCOMM_TESTS_SETTINGS_IMAGE_H
#define KTCOMM_TESTS_SETTINGS_IMAGE_H

#include <ktcomm/util.h>

#include "tests/support.h"

namespace kt::test {

inline constexpr char kNormalDevice[] = "/dev/mtd3", kBackupDevice[] = "/dev/mtd4";
inline constexpr size_t kDeviceSize = 256 * 1024;

inline std::string settings_text(const std::string& title, const std::string& version = "7") {
  return "[SYSTEM]\ncfg_ver=" + version + "\ntitle=" + title + "\n";
}

// A copy as it stands in flash: header (id, length, digest) and archive, erased flash behind.
inline std::string copy_of(const std::string& archive) {
  const auto bytes = reinterpret_cast<const unsigned char*>(archive.data());
  unsigned header[6] = {0xCCAA, static_cast<unsigned>(archive.size())};
  md5_buffer(bytes, header[1], reinterpret_cast<unsigned char*>(&header[2]));
  std::string image(kDeviceSize, '\xFF');
  return image.replace(0, 24, reinterpret_cast<char*>(header), 24).replace(24, archive.size(), archive);
}

// The archive of a directory env that holds one file.
inline std::string archive_of(const std::string& content, const std::string& name = "system.conf") {
  EXPECT_EQ(system("rm -rf /tmp/made && mkdir -p /tmp/made/env"), 0);
  write_file("/tmp/made/env/" + name, content);
  EXPECT_EQ(system("cd /tmp/made && tar zcf made.tgz env"), 0);
  return read_file("/tmp/made/made.tgz");
}

inline std::string title_of_settings() {
  const std::string text = read_file(kSettings);
  const size_t start = text.find("title=");
  return start == text.npos ? text : text.substr(start + 6, text.find('\n', start) - start - 6);
}

// What a power cut leaves of the RAM disk and of /tmp: nothing.
inline void lose_power() {
  EXPECT_EQ(system("cd /tmp; rm -rf /mnt/ramdisk/* env_tmp* cgi_locker.lock t?????? u?????? debug/cgi/*"), 0);
}

}  // namespace kt::test

#endif
