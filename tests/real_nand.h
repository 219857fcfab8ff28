// real_nand.h - the settings on the kernel's own NAND driver, for the tests that only
// an emulated camera can run.
#ifndef KTCOMM_TESTS_REAL_NAND_H
#define KTCOMM_TESTS_REAL_NAND_H

#include <ktcomm/flash.h>

#include <random>

#include "tests/settings_image.h"

namespace kt::test {

// How the camera cuts its chip: /dev/mtd3 begins with erase block 24, /dev/mtd4 with 88.
inline constexpr int kNormalBlock = 24, kBackupBlock = 88, kPagesPerBlock = 64;

// A new chip in the camera; `parameters` are those of the driver's faults.
inline void insert_chip(const std::string& parameters = "") {
  ASSERT_EQ(system(("/sbin/insert-nand " + parameters).c_str()), 0) << parameters;
  ASSERT_TRUE(on_chip(kNormalDevice) && on_chip(kBackupDevice));
}

// What is saved under a title: the settings, and beside them a file of its own that does
// not compress well.
inline std::string noise_of(const std::string& title, size_t size) {
  std::seed_seq seed(title.begin(), title.end());
  std::mt19937 random(seed);
  std::string text(size, ' ');
  for (char& c : text) c = static_cast<char>(32 + random() % 95);
  return text;
}

inline void put_settings(const std::string& title, size_t noise_size) {
  lose_power();
  ASSERT_EQ(mkdir("/mnt/ramdisk/env", 0755), 0);
  write_file(kSettings, settings_text(title));
  write_file("/mnt/ramdisk/env/noise", noise_of(title, noise_size));
}

// Boots and tells the title, or what is wrong with what was found.
inline std::string boot_settings() {
  lose_power();
  if (fl_read_conf(kSettings) != 0) return "boot failed";
  const std::string title = title_of_settings(), noise = read_file("/mnt/ramdisk/env/noise");
  return title == "defaults" || noise == noise_of(title, noise.size()) ? title : "a mixture";
}

}  // namespace kt::test

#endif
