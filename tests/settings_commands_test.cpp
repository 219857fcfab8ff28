// The shell commands, sync calls and trace lines of the settings code, to the letter.
#include <ktcomm/config.h>
#include <ktcomm/flash.h>
#include <spawn.h>

#include <functional>

#include "tests/settings_image.h"
#include "tests/taken_trace.h"

using namespace kt::test;
using std::regex, std::regex_replace, std::string;

namespace {

string g_seen;  // what the library ran, a line each; runs of sync as a number

int run(const char* command) {
  const char* const argv[] = {"sh", "-c", command, nullptr};
  pid_t pid;
  int status = -1;
  if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) == 0) waitpid(pid, &status, 0);
  return status;
}

}  // namespace

extern "C" int system(const char* command) {
  const string copies = regex_replace(string(command), regex("/tmp/([tu])[A-Za-z0-9]{6}"), "/tmp/$1*");
  g_seen += regex_replace(copies, regex("env[0-9]+\\.tgz"), "env*.tgz") + "\n";
  return run(command);
}
extern "C" void sync() { g_seen += "sync\n"; }

namespace {

constexpr char kFile[] = "/mnt/ramdisk/env/a.conf";
const string kReset = "/bin/cp -rf /etc/def_sys.conf /mnt/ramdisk/env/system.conf >/dev/null 2>/dev/null\n";
const string kPack = "cd /mnt/ramdisk/; /bin/tar zcf  env*.tgz  env >/dev/null 2>/dev/null\n";
const string kSyncs = "sync\nsync\nsync\nsync\nsync\nsync\n";
const string kClear = "/bin/rm -rf  /mnt/ramdisk/env  >/dev/null 2>/dev/null\n";

class Commands : public testing::Test {
 protected:
  void SetUp() override {
    saved_defaults_ = read_file(kDefaults);
    write_file(kDefaults, settings_text("defaults"));
    run("rm -rf /mnt/ramdisk/* /tmp/debug/cgi/*; mkdir -p /mnt/ramdisk/env");
    for (const char* device : {kNormalDevice, kBackupDevice}) write_partition(device, string(kDeviceSize, '\xFF'));
    write_file(kSettings, settings_text("live"));
  }
  void TearDown() override { write_file(kDefaults, saved_defaults_); }

  // The trace since the last call, without numbers.
  static string trace() {
    return regex_replace(take_trace(), regex("= ?\\d+(  md5val=[0-9a-f]{32})|fd = \\d+|env\\d+"), "*");
  }

 private:
  string saved_defaults_;
};

TEST_F(Commands, are_run_in_order_and_to_the_letter) {
  const string read_copy = "sync\ncd /mnt/ramdisk/; /bin/tar zxf  /tmp/env_tmp0.tgz  >/dev/null 2>/dev/null\n";
  const std::tuple<const char*, std::function<int()>, string> kSteps[] = {
      {"append a section", [] { return PRO_SetStr("s", "k", "1", kFile); },
       "/bin/cp -f /tmp/t* /mnt/ramdisk/env/a.conf >/dev/null 2> /dev/null\nsync\n"},
      {"replace inside a section", [] { return PRO_SetStr("s", "k", "2", kFile); },
       "/bin/cp -f /tmp/t* /mnt/ramdisk/env/a.conf > /dev/null 2> /dev/null\nsync\n"},
      {"set what is current", [] { return PRO_SetStr("s", "k", "2", kFile); }, ""},
      {"flat form", [] { return PRO_iSetStr(nullptr, "k", "3", kFile); },
       "/bin/cp -f /tmp/t* /mnt/ramdisk/env/a.conf >/dev/null 2> /dev/null\nsync\n"},
      {"delete a section", [] { return PRO_DelSect("s", kFile); },
       "/bin/cp -f /tmp/u* /mnt/ramdisk/env/a.conf > /dev/null 2> /dev/null\nsync\n"
       "/bin/chmod 666 /mnt/ramdisk/env/a.conf > /dev/null 2> /dev/null\n"},
      {"save", [] { return fl_write_conf(kSettings); }, kPack + kSyncs},
      {"save another file", [] { return write_file("/tmp/x", settings_text("x")), fl_write_conf("/tmp/x"); },
       "/bin/cp -f /tmp/x /mnt/ramdisk/env/system.conf >/dev/null 2>/dev/null\n" + kPack + kSyncs},
      {"save the settings under another name", [] { return fl_write_conf("/mnt/ramdisk//env/system.conf"); },
       kPack + kSyncs},
      {"maintenance", [] { return kt_flash_set_env(1); },
       "cd /mnt/ramdisk/; /bin/tar czf  env*.tgz  env >/dev/null 2>/dev/null\n" + kSyncs},
      {"boot", [] { return unlink(kSettings), fl_read_conf(kSettings); }, kClear + read_copy},
      {"boot without copies",
       [] {
         write_partition(kNormalDevice, ""), write_partition(kBackupDevice, ""), unlink(kSettings);
         return fl_read_conf(kSettings);
       },
       kClear + "sync\n" + kClear + "sync\n/bin/mkdir -p  /mnt/ramdisk/env >/dev/null 2>/dev/null\n" + kReset},
      {"boot with another version",
       [] {
         write_file(kSettings, settings_text("old", "6")), write_file("/mnt/ramdisk/env/system.chg", "");
         return fl_read_conf(kSettings);
       },
       "/bin/rm /mnt/ramdisk/env/sys_conf_line.txt >/dev/null 2>/dev/null\n" + kReset +
           "/bin/rm -f /mnt/ramdisk/env/system.chg >/dev/null 2>/dev/null\n"},
  };
  for (const auto& [what, act, seen] : kSteps) {
    EXPECT_EQ(act(), 0) << what;
    EXPECT_EQ(std::exchange(g_seen, ""), seen) << what;
  }
}

TEST_F(Commands, traces_tell_the_story_of_a_save_and_a_boot) {
  EXPECT_EQ(fl_write_conf(kSettings), 0);
  EXPECT_EQ(trace(),
            "8 fl_write_conf()ENV: fl_write_conf(),  ENV_ID=52394, flen*\n\n"
            "8 fl_write_conf()ENV: fl_write_conf()ret1 = 0\n"
            "8 fl_write_conf()ENV: fl_write_conf()ret = 0, unlock *.\n");
  unlink(kSettings);
  write_partition(kNormalDevice, "");
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  const string wrong = "4 kt_flash_get_env_from_flash()Error: kt_flash_get_env_from_flash(),envheader is wrong \n";
  EXPECT_EQ(trace(), (on_chip() ? wrong : "") +  // nothing can be read of an empty file
                         "8 fl_read_conf()fl_read_conf() get back up configuration OK\n"
                         "8 fl_read_conf()fl_read_conf() check cfg version OK\n");
  rename(kNormalDevice, "/dev/aside");
  EXPECT_EQ(fl_write_conf(kSettings), -2);
  rename("/dev/aside", kNormalDevice);
  const string failed = "4 flash_open()flash_open():Open file fail\n", text = trace();
  const string attempt = failed + "4 fl_conf_ram2flash()Error:  write /mnt/ramdisk/*.tgz in MTD_CONF0 is wrong\n";
  EXPECT_NE(text.find("ret1 = 0\n" + attempt + attempt + attempt + failed +
                      "8 fl_write_conf()ENV: fl_write_conf()ret = -2, unlock *.\n"),
            text.npos)
      << text;
}

TEST_F(Commands, failures_before_the_flash_leave_the_lock_free_and_nothing_behind) {
  run("chmod 0555 /mnt/ramdisk");  // no archive can be made
  EXPECT_EQ(fl_write_conf(kSettings), -3);
  run("chmod 0755 /mnt/ramdisk");
  run("cp /mnt/ramdisk/env/system.conf /tmp/x; chmod 0 /tmp/x");
  EXPECT_EQ(fl_write_conf("/tmp/x"), -1) << "a file that cannot be copied";
  EXPECT_TRUE(title_of_settings() == "live" && files_in("/mnt/ramdisk") == std::vector<string>{"env"});
  EXPECT_EQ(read_partition(kNormalDevice)[0], '\xFF');
  run("chmod 0444 /etc/def_sys.conf");
  char title[33] = "";
  EXPECT_EQ(PRO_GetStr("SYSTEM", "title", title, 32, nullptr), -1) << "defaults that cannot be written serve nobody";
  run("chmod 0644 /etc/def_sys.conf");
  EXPECT_EQ(fl_write_conf(kSettings), 0);
  run("chmod 0555 /tmp");  // no temporary copy can be made
  EXPECT_TRUE(PRO_SetStr("s", "k", "1", kFile) == -1 && PRO_uopen(kFile) == nullptr && ifp == nullptr);
  run("chmod 1777 /tmp");
}

}  // namespace
