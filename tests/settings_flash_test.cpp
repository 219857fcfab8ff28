// The settings in flash: boots and saves on plain files.
#include <fcntl.h>
#include <ktcomm/config.h>
#include <ktcomm/flash.h>
#include <ktcomm/log.h>
#include <signal.h>
#include <sys/file.h>

#include "tests/settings_image.h"

using namespace kt::test;

namespace {

constexpr char kLines[] = "/mnt/ramdisk/env/sys_conf_line.txt";

class SettingsFlash : public testing::Test {
 protected:
  void SetUp() override {
    saved_defaults_ = read_file(kDefaults);
    write_file(kDefaults, settings_text("defaults"));
    write_file(kNormalDevice, std::string(kDeviceSize, '\xFF'));
    write_file(kBackupDevice, std::string(kDeviceSize, '\xFF'));
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk"), 0);
    lose_power();
    descriptors_ = open_descriptors();
  }
  void TearDown() override {
    EXPECT_EQ(open_descriptors(), descriptors_);
    EXPECT_TRUE(files_in("/tmp", "env_tmp").empty());
    EXPECT_LE(files_in("/mnt/ramdisk").size(), 1u);
    write_file(kDefaults, saved_defaults_);
  }

  static void put_settings(const std::string& text) {
    ASSERT_EQ(system("mkdir -p /mnt/ramdisk/env"), 0);
    write_file(kSettings, text);
  }
  static std::string trace() { return read_file("/tmp/debug/cgi/0-0.log"); }
  static bool traced(const char* text) { return trace().find(text) != std::string::npos; }

 private:
  std::string saved_defaults_;
  size_t descriptors_ = 0;
};

using Boot = SettingsFlash;
using Save = SettingsFlash;
using Maintenance = SettingsFlash;

TEST_F(Boot, takes_the_first_intact_copy_or_the_defaults) {
  const std::string normal = copy_of(archive_of(settings_text("normal")));
  const std::string backup = copy_of(archive_of(settings_text("backup")));
  const auto changed = [](std::string image, size_t at, char to) {
    image[at] = to;
    return image;
  };
  const std::string erased(kDeviceSize, '\xFF');
  std::string beyond = changed(normal, 6, '\x7F');
  const struct {
    const char* what;
    std::string normal;
    std::string backup;
    const char* title;
    const char* trace;
  } kCases[] = {
      {"both intact", normal, backup, "normal", "get normal configuration OK\n"},
      {"normal erased", erased, backup, "backup", "envheader is wrong \n"},
      {"backup erased", normal, erased, "normal", "check cfg version OK\n"},
      {"both erased", erased, erased, "defaults", "do facotry default directly\n"},
      {"wrong id", changed(normal, 0, '\x55'), backup, "backup", "get back up configuration OK\n"},
      {"wrong archive byte", changed(normal, 99, '~'), backup, "backup", "get back up"},
      {"wrong digest byte", changed(normal, 23, '~'), backup, "backup", "get back up"},
      {"length 0", normal.substr(0, 4) + std::string(4, '\0') + normal.substr(8), backup, "backup",
       "envheader is wrong \n"},
      {"length beyond the partition", beyond, backup, "backup", "get back up"},
      {"both broken", changed(normal, 99, '~'), beyond, "defaults", "get both configuration ERROR\n"},
      {"truncated device", normal.substr(0, 60), backup, "backup", "get back up"},
      {"device without a header", normal.substr(0, 23), backup, "backup", "get back up"},
      {"empty devices", "", "", "defaults", "get both"},
      {"archive that is no tar", copy_of("not a tar"), backup, "backup", "get back up"},
      {"archive without settings", copy_of(archive_of("x", "other")), backup, "backup", "get back"},
      {"a tab in the settings", copy_of(archive_of(settings_text("a\tb"))), backup, "backup", "get back up"},
      {"a byte above 126", copy_of(archive_of(settings_text("\x7F"))), backup, "backup", "get back"},
      {"other version", copy_of(archive_of(settings_text("old", "6"))), backup, "defaults",
       "do facotry default directly\n"},
      {"no version: that of the defaults", copy_of(archive_of("[SYSTEM]\ntitle=none\n")), backup, "none",
       "check cfg version OK\n"},
      {"archive of several pieces", copy_of(archive_of(settings_text("long")).append(150000, '\0')), backup, "long",
       "get normal configuration OK\n"},
  };
  for (const auto& c : kCases) {
    lose_power();
    write_file(kNormalDevice, c.normal);
    write_file(kBackupDevice, c.backup);
    EXPECT_EQ(fl_read_conf(kSettings), 0) << c.what;
    EXPECT_EQ(title_of_settings(), c.title) << c.what;
    EXPECT_TRUE(files_in("/tmp", "env_tmp").empty()) << c.what;
    EXPECT_TRUE(traced(c.trace)) << c.what << "\n" << trace();
    EXPECT_EQ(read_file(kNormalDevice) == c.normal && read_file(kBackupDevice) == c.backup, true)
        << c.what << ": a boot writes nothing to flash";
  }
}

TEST_F(Boot, leaves_valid_settings_alone_and_clears_invalid_ones) {
  write_file(kNormalDevice, copy_of(archive_of(settings_text("stored"))));
  put_settings(settings_text("live"));
  write_file("/tmp/env_tmp0.tgz", "left over");
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  EXPECT_EQ(title_of_settings(), "live");
  put_settings(settings_text("bad\x01"));
  write_file("/mnt/ramdisk/env/stray", "");
  write_file("/tmp/env_tmp0.tgz", std::string(100000, 'x'));
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  EXPECT_EQ(title_of_settings(), "stored");
  EXPECT_FALSE(exists("/mnt/ramdisk/env/stray"));
}

TEST_F(Boot, defaults_replace_what_reminds_of_old_settings) {
  put_settings(settings_text("old", "6"));
  write_file(kLines, "3");
  write_file("/mnt/ramdisk/env/system.chg", "");
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  EXPECT_EQ(title_of_settings(), "defaults");
  EXPECT_FALSE(exists(kLines));
  EXPECT_FALSE(exists("/mnt/ramdisk/env/system.chg"));
}

TEST_F(Boot, without_defaults_or_path) {
  write_file(kNormalDevice, copy_of(archive_of(settings_text("stored"))));
  ASSERT_EQ(rename(kDefaults, "/etc/away"), 0);
  EXPECT_EQ(fl_read_conf(kSettings), 0) << "no version to compare with";
  EXPECT_EQ(title_of_settings(), "stored");
  lose_power();
  write_file(kNormalDevice, "");
  EXPECT_EQ(fl_read_conf(kSettings), -3);
  EXPECT_TRUE(traced("copy file ERROR\n"));
  ASSERT_EQ(rename("/etc/away", kDefaults), 0);

  EXPECT_EQ(fl_read_conf(nullptr), -1);
  EXPECT_NE(read_file("/tmp/debug/user/nc.log").find("File name is NULL\n"), std::string::npos);
  lose_power();
  EXPECT_EQ(system("rm -rf /mnt/ramdisk; touch /mnt/ramdisk"), 0);
  EXPECT_EQ(fl_read_conf(kSettings), -2);
  EXPECT_TRUE(traced("create /mnt/ramdisk/env ERROR\n"));
  EXPECT_EQ(system("rm /mnt/ramdisk; mkdir /mnt/ramdisk"), 0);
}

TEST_F(Save, stores_both_copies_and_a_boot_finds_everything) {
  put_settings(settings_text("saved"));
  write_file("/mnt/ramdisk/env/other", std::string("\0\xFF", 2));
  ASSERT_EQ(fl_write_conf(kSettings), 0);
  const std::string normal = read_file(kNormalDevice);
  EXPECT_EQ(normal, read_file(kBackupDevice));
  unsigned length;
  memcpy(&length, &normal[4], sizeof length);
  EXPECT_EQ(normal, copy_of(normal.substr(24, length))) << "header, archive, and nothing else";
  EXPECT_TRUE(traced("ENV_ID=52394, flen= ")) << trace();
  EXPECT_TRUE(traced("ret1 = 0"));
  lose_power();
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  EXPECT_EQ(title_of_settings(), "saved");
  EXPECT_EQ(read_file("/mnt/ramdisk/env/other"), std::string("\0\xFF", 2));
}

TEST_F(Save, takes_another_file_into_place) {
  put_settings(settings_text("live"));
  write_file("/tmp/new.conf", settings_text("new"));
  EXPECT_EQ(fl_reset_write_conf("/tmp/new.conf"), 0);
  EXPECT_EQ(title_of_settings(), "new");
  for (const char* path : {"/tmp/none", "/tmp", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(fl_write_conf(path), -1);
    EXPECT_EQ(title_of_settings(), "new") << "nothing was harmed";
  }
  EXPECT_EQ(fl_write_conf(("/tmp/" + std::string(4000, 'x')).c_str()), -1);
}

TEST_F(Save, refuses_invalid_settings_and_goes_back_to_the_stored_ones) {
  put_settings(settings_text("good"));
  ASSERT_EQ(fl_write_conf(kSettings), 0);
  const std::string stored = read_file(kNormalDevice);
  for (const char* bad : {"tab\t", "\x7F", "\x80", "\x1F"}) {
    put_settings(settings_text(bad));
    EXPECT_EQ(fl_write_conf(kSettings), -1);
    EXPECT_EQ(title_of_settings(), "good");
  }
  EXPECT_TRUE(traced("check config file fail\n"));
  lose_power();
  EXPECT_EQ(in_child([] {
              alarm(20);  // restoring the defaults takes the lock that the save held
              rename(kNormalDevice, "/dev/away");
              rename(kBackupDevice, "/dev/away2");
              const int result = fl_write_conf(kSettings);
              rename("/dev/away", kNormalDevice);
              rename("/dev/away2", kBackupDevice);
              return result == -1 && title_of_settings() == "defaults" ? 0 : 1;
            }),
            0);
  lose_power();
  EXPECT_EQ(fl_write_conf(kSettings), -1) << "no settings at all";
  EXPECT_EQ(title_of_settings(), "good");
  EXPECT_EQ(read_file(kNormalDevice), stored);
  put_settings("[SYSTEM]\ncfg_ver=7\r\ntitle=~ \n" + std::string("\0\x01", 2));
  EXPECT_EQ(fl_write_conf(kSettings), 0) << "a 0 byte ends the check";
}

TEST_F(Save, reports_which_copy_could_not_be_written) {
  put_settings(settings_text("first"));
  ASSERT_EQ(fl_write_conf(kSettings), 0);
  const std::string stored = read_file(kNormalDevice);
  put_settings(settings_text("second"));

  int ready[2];
  ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
  const pid_t holder = fork();
  if (holder == 0) {  // a writer that holds the normal copy
    if (flash_open(kNormalDevice, O_RDWR) < 1) _exit(1);
    (void)!write(ready[1], "x", 1);
    pause();
  }
  char c;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  EXPECT_EQ(fl_write_conf(kSettings), -2);
  EXPECT_TRUE(traced("in MTD_CONF0 is wrong\n"));
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_EQ(read_file(kNormalDevice), stored);
  EXPECT_NE(read_file(kBackupDevice), stored);
  close(ready[0]);
  close(ready[1]);

  EXPECT_EQ(fl_write_conf(kSettings), 0);
  EXPECT_EQ(read_file(kNormalDevice), read_file(kBackupDevice));
}

TEST_F(Save, refuses_an_archive_larger_than_the_partition) {
  put_settings(settings_text("small"));
  write_file(kBackupDevice, std::string(2 * kDeviceSize, '\xFF'));
  ASSERT_EQ(fl_write_conf(kSettings), 0);
  const std::string normal = read_file(kNormalDevice);
  const std::string backup = read_file(kBackupDevice);
  EXPECT_EQ(system("head -c 300000 /dev/urandom > /mnt/ramdisk/env/noise"), 0);
  EXPECT_EQ(fl_write_conf(kSettings), -2);
  EXPECT_EQ(read_file(kNormalDevice), normal);
  EXPECT_EQ(read_file(kBackupDevice), backup) << "also the one that has the room";
  write_file(kNormalDevice, backup);
  write_file(kBackupDevice, normal);
  EXPECT_EQ(fl_write_conf(kSettings), -2);
  EXPECT_EQ(read_file(kNormalDevice), backup);
  EXPECT_EQ(read_file(kBackupDevice), normal);
  write_file(kNormalDevice, "");
  write_file(kBackupDevice, "");
  EXPECT_EQ(fl_write_conf(kSettings), 0) << "files that are no partitions grow";
  EXPECT_EQ(fl_write_conf(kSettings), 0);
}

TEST_F(Save, waits_for_the_lock_over_signals) {
  put_settings(settings_text("saved"));
  const int lock = open("/tmp/cgi_locker.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  const pid_t saver = fork();
  if (saver == 0) _exit(fl_write_conf(kSettings) == 0 ? 0 : 1);
  usleep(50000);
  kill(saver, SIGUSR1);
  usleep(50000);
  EXPECT_TRUE(traced("try locking file.\n"));
  EXPECT_EQ(read_file(kNormalDevice)[0], '\xFF');
  flock(lock, LOCK_UN);
  close(lock);
  int status = -1;
  waitpid(saver, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(Save, eight_processes_at_once) {
  put_settings(settings_text("saved"));
  EXPECT_TRUE(in_processes(8, [](int process) {
    for (int i = 0; i < 3; ++i) {
      if (PRO_SetInt("p", std::to_string(process).c_str(), i, kSettings) != 0) return 1;
      if (fl_write_conf(kSettings) != 0) return 2;
    }
    return 0;
  }));
  lose_power();
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  for (int process = 0; process < 8; ++process) {
    EXPECT_NE(read_file(kSettings).find(std::to_string(process) + "=2\n"), std::string::npos);
  }
}

TEST(LineCount, counts_line_feeds_of_valid_files) {
  const struct {
    std::string content;
    int expected;
  } kCases[] = {
      {"", 0},      {"a", 0},        {"a\n", 1},
      {"a\nb", 1},  {" ~\r\n\n", 2}, {"a\n\tb\n", -3},
      {"\x7F", -3}, {"\x80", -3},    {std::string("a\n\0\x01\n", 5), 1},
  };
  for (const auto& c : kCases) {
    write_file("/tmp/count", c.content);
    EXPECT_EQ(calc_conf_line_num_and_check_ascii("/tmp/count"), c.expected) << c.content;
  }
  testing::internal::CaptureStdout();
  EXPECT_EQ(calc_conf_line_num_and_check_ascii(nullptr), -1);
  EXPECT_EQ(calc_conf_line_num_and_check_ascii("/tmp/none"), -2);
  EXPECT_EQ(calc_conf_line_num_and_check_ascii("/tmp"), -2) << "a directory";
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "File name is NULL\nFail to open file\nFail to open file\n");
}

TEST_F(Maintenance, one_copy_is_stored_beside_an_equal_one_only) {
  put_settings(settings_text("saved"));
  write_file(kLines, "3");
  ASSERT_EQ(fl_write_conf(kSettings), 0);
  const std::string stored = read_file(kNormalDevice);
  write_file(kNormalDevice, std::string(kDeviceSize, '\xFF'));
  EXPECT_EQ(kt_flash_set_env(0), 0);
  EXPECT_EQ(read_file(kNormalDevice), stored);
  EXPECT_TRUE(traced("open MTD_CONF0\n"));
  EXPECT_FALSE(traced("line control file")) << "it was there, and right";

  put_settings(settings_text("other"));
  EXPECT_EQ(kt_flash_set_env(1), 0) << "the normal copy differs: gives up without the header";
  const std::string given_up = read_file(kBackupDevice);
  EXPECT_EQ(given_up.substr(0, 24), stored.substr(0, 24));
  EXPECT_NE(given_up.substr(24, 500), stored.substr(24, 500));
  lose_power();
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  EXPECT_EQ(title_of_settings(), "saved");
}

TEST_F(Maintenance, line_control_file) {
  EXPECT_EQ(kt_flash_set_env(0), -1) << "no directory";
  put_settings(settings_text("saved"));
  EXPECT_EQ(kt_flash_set_env(2), -1);
  EXPECT_EQ(kt_flash_set_env(0), 0);
  EXPECT_EQ(read_file(kLines), "3");
  EXPECT_TRUE(traced("can't find line control file. \n"));
  EXPECT_TRUE(traced("line_cnt = 3.\n"));
  for (const char* stale : {"17", "3\n", "33"}) {
    write_file(kLines, stale);
    EXPECT_EQ(kt_flash_set_env(0), 0);
    EXPECT_EQ(read_file(kLines), "3");
  }
  struct stat before, after;
  ASSERT_EQ(stat(kLines, &before), 0);
  EXPECT_EQ(kt_flash_set_env(0), 0);
  ASSERT_EQ(stat(kLines, &after), 0);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec) << "rewritten without a change";

  unlink(kLines);
  put_settings(settings_text("a\tb"));
  EXPECT_EQ(kt_flash_set_env(0), -1);
  EXPECT_TRUE(traced("calculate line count fail. line_cnt = -3\n"));
  EXPECT_FALSE(exists(kLines));
  write_file(kLines, "3");
  EXPECT_EQ(kt_flash_set_env(0), -1);
  EXPECT_TRUE(traced("validate fail \n"));
  EXPECT_FALSE(exists("/mnt/ramdisk/env"));
}

TEST_F(Save, rounds_keep_nothing) {
  put_settings(settings_text("saved"));
  expect_nothing_kept(
      "save", [] { fl_write_conf(kSettings); }, 30);
  expect_nothing_kept("boot with live settings", [] { fl_read_conf(kSettings); });
  expect_nothing_kept(
      "set_env", [] { kt_flash_set_env(1); }, 30);
  expect_nothing_kept("failing save", [] { fl_write_conf("/tmp/none"); });
  expect_nothing_kept(
      "boot",
      [] {
        unlink(kSettings);
        fl_read_conf(kSettings);
      },
      30);
}

}  // namespace
