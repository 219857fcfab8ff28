// records_support.h - what the tests of the settings records share.
#ifndef KTCOMM_TESTS_RECORDS_SUPPORT_H
#define KTCOMM_TESTS_RECORDS_SUPPORT_H

#include <ktcomm/settings.h>
#include <limits.h>
#include <string.h>

#include <sstream>

#include "tests/support.h"

using std::string, std::to_string;

inline string g_commands;  // that would have run programs of the firmware
inline int g_status;       // what the shell says of them

extern "C" int system(const char* command) {
  if (strncmp(command, "/usr/local/", 11) == 0) return g_commands += command + string("\n"), g_status;
  return kt::test::libc("system", &system)(command);
}

namespace kt::test {

inline constexpr char kCrontab[] = "/mnt/ramdisk/crontab", kRetry[] = "/tmp/ntp_retry";

class Records : public CameraTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(system("cd /mnt/ramdisk; chmod 755 .; rm -rf * /tmp/cgi* /tmp/ntp*; mkdir env"), 0);
    for (const char* path : {kDefaults, kSettings}) write_file(path, "");
    g_commands = "";
  }
};

// All that a writer leaves behind; "!" for a pending retry.
inline string outcome() {
  return read_file(kSettings) + g_commands + (exists(kCrontab) ? read_file(kCrontab) : "") +
         (exists(kRetry) ? "!" : "");
}

// Calls `body` with each of the texts between '|'.
void for_each_of(const string& texts, auto body) {
  std::istringstream list(texts);
  for (string text; std::getline(list, text, '|');) body(text);
}

// Changes one byte after another of what `save` has stored, without the lock that
// storing this takes: expects `result`, and nothing to have happened.
template <typename T>
void expect_each_to_be_written(T conf, std::vector<size_t> offsets, int result, int (*save)(const T*)) {
  EXPECT_EQ(save(&conf), 0);
  g_commands = "";
  const string before = outcome();
  EXPECT_EQ(system("cd /tmp; rm cgi_locker.lock; mkdir cgi_locker.lock"), 0);
  for (const size_t offset : offsets) {
    T changed = conf;
    reinterpret_cast<char*>(&changed)[offset] ^= 2;
    EXPECT_EQ(save(&changed), result) << offset;
    EXPECT_EQ(outcome(), before) << offset;
  }
  rmdir("/tmp/cgi_locker.lock");
}

}  // namespace kt::test

#endif
