// settings_image.h - copies of the settings in flash, made by hand.
#ifndef KTCOMM_TESTS_SETTINGS_IMAGE_H
#define KTCOMM_TESTS_SETTINGS_IMAGE_H

#include <ktcomm/util.h>
#include <string.h>

#include "tests/support.h"

namespace kt::test {

inline constexpr char kNormalDevice[] = "/dev/mtd3";
inline constexpr char kBackupDevice[] = "/dev/mtd4";
inline constexpr size_t kDeviceSize = 256 * 1024;

inline std::string settings_text(const std::string& title, const std::string& version = "7") {
  return "[SYSTEM]\ncfg_ver=" + version + "\ntitle=" + title + "\n";
}

// A copy as it stands in flash: header and archive, erased flash behind.
inline std::string copy_of(const std::string& archive) {
  std::string image(24, '\0');
  image[0] = '\xAA';
  image[1] = '\xCC';
  for (int i = 0; i < 4; ++i) image[4 + static_cast<size_t>(i)] = static_cast<char>(archive.size() >> (8 * i));
  md5_buffer(reinterpret_cast<const unsigned char*>(archive.data()), static_cast<unsigned>(archive.size()),
             reinterpret_cast<unsigned char*>(&image[8]));
  image += archive;
  image.resize(kDeviceSize, '\xFF');
  return image;
}

// The archive of a directory env that holds one file.
inline std::string archive_of(const std::string& content, const char* name = "system.conf") {
  EXPECT_EQ(system("rm -rf /tmp/made && mkdir -p /tmp/made/env"), 0);
  write_file(std::string("/tmp/made/env/") + name, content);
  EXPECT_EQ(system("cd /tmp/made && tar zcf made.tgz env"), 0);
  return read_file("/tmp/made/made.tgz");
}

inline std::string title_of_settings() {
  const std::string text = read_file(kSettings);
  const size_t start = text.find("title=");
  return start == std::string::npos ? text : text.substr(start + 6, text.find('\n', start) - start - 6);
}

// What a power cut leaves of the RAM disk and of /tmp: nothing.
inline void lose_power() {
  EXPECT_EQ(system("rm -rf /mnt/ramdisk/* /tmp/env_tmp* /tmp/cgi_locker.lock /tmp/t?????? "
                   "/tmp/u?????? /tmp/debug/cgi/* /tmp/debug/cgi/~*"),
            0);
}

}  // namespace kt::test

#endif
