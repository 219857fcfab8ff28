// settings_image.h - copies of the settings in flash, made by hand.
#ifndef KTCOMM_TESTS_SETTINGS_IMAGE_H
#define KTCOMM_TESTS_SETTINGS_IMAGE_H

#include <ktcomm/util.h>

#include "base/unique_fd.h"
#include "flash/mtd_request.h"
#include "tests/support.h"

namespace kt::test {

inline constexpr char kNormalDevice[] = "/dev/mtd3", kBackupDevice[] = "/dev/mtd4";
inline constexpr size_t kDeviceSize = 256 * 1024;

inline std::string settings_text(const std::string& title, const std::string& version = "7") {
  return "[SYSTEM]\ncfg_ver=" + version + "\ntitle=" + title + "\n";
}

// Whether a partition is one of a chip, as in the emulated camera, and not a plain file.
inline bool on_chip(const char* device = kNormalDevice) {
  struct stat status;
  return stat(device, &status) == 0 && S_ISCHR(status.st_mode);
}

// The same, and prints what is not tried with a chip, whose partitions have the size they have.
inline bool on_chip_without(const char* what) {
  if (on_chip()) printf("on a chip, therefore without: %s\n", what);
  return on_chip();
}

// Makes `image` the content of a partition. What a chip has more than that is erased.
inline void write_partition(const char* device, std::string image) {
  if (!on_chip(device)) return write_file(device, image);
  const unique_fd chip = open_fd(device, O_RDWR);
  mtd_info_user info = {};
  ASSERT_EQ(mtd_request(chip.get(), MEMGETINFO, &info), 0) << device;
  erase_info_user all = {0, info.size};
  image.resize(image.find_last_not_of('\xFF') + 1);
  image.resize((image.size() + info.writesize - 1) / info.writesize * info.writesize, '\xFF');
  ASSERT_EQ(mtd_request(chip.get(), MEMERASE, &all), 0) << device;
  ASSERT_EQ(write(chip.get(), image.data(), image.size()), static_cast<ssize_t>(image.size())) << device;
}

// The content of a partition. Of erased bytes at its end a chip has no more here than fill kDeviceSize.
inline std::string read_partition(const char* device) {
  std::string content = read_file(device);
  if (on_chip(device)) content.resize(std::max(content.find_last_not_of('\xFF') + 1, kDeviceSize));
  return content;
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
