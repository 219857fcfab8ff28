// The settings in flash: boots and saves on what the camera has, plain files or a chip.
#include <ktcomm/config.h>
#include <ktcomm/flash.h>

#include <tuple>

#include "tests/settings_image.h"

using namespace kt::test;
using std::string, std::to_string, std::tuple;
using Flash = std::pair<string, string>;  // the normal and the backup copy

namespace {

const string kFolder = "/mnt/ramdisk/env/", kLines = kFolder + "sys_conf_line.txt", kErased(kDeviceSize, '\xFF');

class SettingsFlash : public CameraTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(system("rm -rf /mnt/ramdisk && mkdir /mnt/ramdisk"), 0);
    lose_power();
    write_file(kDefaults, settings_text("defaults"));
    write_flash({kErased, kErased});
    put(settings_text("saved"));
  }
  void TearDown() override {
    CameraTest::TearDown();
    EXPECT_LE(files_in("/mnt/ramdisk").size(), 1u) << "an archive left";
  }

  static void write_flash(const Flash& copies) {
    write_partition(kNormalDevice, copies.first), write_partition(kBackupDevice, copies.second);
  }
  static Flash read_flash() { return {read_partition(kNormalDevice), read_partition(kBackupDevice)}; }
  static void put(const string& settings, const string& more = "") {
    ASSERT_EQ(system(("mkdir -p /mnt/ramdisk/env" + more).c_str()), 0);
    write_file(kSettings, settings);
  }
  static bool traced(const string& text) { return read_file("/tmp/debug/cgi/0-0.log").find(text) != text.npos; }
};

TEST_F(SettingsFlash, boot_takes_live_settings_else_the_first_intact_copy_else_the_defaults) {
  const auto copy = [](const string& settings) { return copy_of(archive_of(settings)); };
  const auto spoilt = [](string image, size_t at) { return image.replace(at, 1, 1, static_cast<char>(~image[at])); };
  const string live = settings_text("live"), old = settings_text("old", "6"), no_version = "[SYSTEM]\ntitle=none\n";
  const string normal = copy(settings_text("normal")), backup = copy(settings_text("backup"));
  const tuple<const char*, string, string, string, const char*, size_t, const char*> kCases[] = {
      {"both intact", "", normal, backup, "normal", 1, "get normal configuration OK\n"},
      {"erased", "", kErased, backup, "backup", 1, "envheader is wrong \n"},
      {"wrong id", "", spoilt(normal, 0), backup, "backup", 1, "get back up configuration OK\n"},
      {"wrong digest", "", spoilt(normal, 23), backup, "backup", 1, "get back up"},
      {"length 0", "", copy_of(""), backup, "backup", 1, "envheader is wrong \n"},
      {"length beyond the partition", "", spoilt(normal, 6), backup, "backup", 1, "get back up"},
      {"truncated device", "", normal.substr(0, 60), backup, "backup", 1, "get back up"},
      {"both broken", "", spoilt(normal, 99), copy_of("no tar"), "defaults", 1, "get both configuration ERROR\n"},
      {"empty devices", "", "", "", "defaults", 1, "do facotry default directly\n"},
      {"invalid settings in the archive", "", copy(settings_text("\x7F")), backup, "backup", 1, "get back up"},
      {"other version", "", copy(old), backup, "defaults", 1, "do facotry default directly\n"},
      {"no version", "", copy(no_version), backup, "none", 1, "check cfg version OK\n"},
      {"several pieces", "", copy_of(archive_of(live).append(150000, '\0')), backup, "live", 1, "get normal"},
      {"valid live settings stay", "[SYSTEM]", normal, backup, "[SYSTEM]", 4, "get normal"},
      {"invalid live settings", settings_text("\x01"), normal, backup, "normal", 1, "get normal"},
      {"live settings of another version", old, normal, backup, "defaults", 2, "do facotry"},
  };
  for (const auto& [what, settings, first, second, title, files, trace] : kCases) {
    SCOPED_TRACE(what);
    lose_power();
    if (!settings.empty()) put(settings, "; cd /mnt/ramdisk/env; touch sys_conf_line.txt system.chg stray");
    write_file("/tmp/env_tmp0.tgz", kErased);
    write_flash({first, second});
    const Flash before = read_flash();
    EXPECT_EQ(fl_read_conf(kSettings), 0);
    EXPECT_EQ(tuple(title_of_settings(), files_in(kFolder.c_str()).size()), tuple(title, files));
    EXPECT_TRUE(traced(trace)) << trace;
    EXPECT_TRUE(read_flash() == before && files_in("/tmp", "env_tmp").empty()) << "flash or /tmp changed";
  }
}

TEST_F(SettingsFlash, boot_without_defaults_path_or_directory) {
  const string other = kFolder + "other.conf", too_long = "/mnt/ramdisk/env" + string(2100, '/') + "x";
  lose_power();
  EXPECT_EQ(fl_read_conf(nullptr), -1);
  EXPECT_NE(read_file("/tmp/debug/user/nc.log").find("File name is NULL\n"), string::npos);
  write_flash({copy_of(archive_of(settings_text("stored", "6"))), ""});
  unlink(kDefaults);
  EXPECT_TRUE(fl_read_conf(kSettings) == 0 && title_of_settings() == "stored") << "no version to compare with";
  write_file(kDefaults, "");
  EXPECT_TRUE(fl_read_conf(other.c_str()) == 0 && read_file(other).empty());
  EXPECT_TRUE(fl_read_conf(too_long.c_str()) == -3 && traced("copy file ERROR\n"));
  write_flash({});
  EXPECT_EQ(system("rm -rf /mnt/ramdisk; touch /mnt/ramdisk"), 0);
  EXPECT_TRUE(fl_read_conf(kSettings) == -2 && traced("create /mnt/ramdisk/env ERROR\n"));
}

TEST_F(SettingsFlash, save_takes_a_file_into_place_and_stores_everything_twice) {
  const string longest = "/tmp" + string(1011, '/') + "new.conf", longer = "/" + longest;
  write_file(kFolder + "other", string("\0\xFF", 2));
  write_file(longest, settings_text("new"));
  EXPECT_EQ(fl_reset_write_conf(longest.c_str()), 0);
  const string image = read_partition(kNormalDevice);
  const size_t length = image.find_last_not_of('\xFF') + 1 - 24;
  const string whole = copy_of(image.substr(24, length));
  EXPECT_TRUE(read_flash() == Flash(whole, whole)) << "header, archive, and nothing else";
  EXPECT_TRUE(traced("ENV_ID=52394, flen= " + to_string(length) + "  md5val=") && traced("ret1 = 0\n")) << length;
  lose_power();
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  EXPECT_EQ(title_of_settings() + read_file(kFolder + "other"), string("new\0\xFF", 5));
  put(settings_text("kept"));
  for (const char* path : {"/tmp/none", "/dev/null", longer.c_str(), static_cast<const char*>(nullptr)}) {
    EXPECT_TRUE(fl_write_conf(path) == -1 && title_of_settings() == "kept") << (path != nullptr ? path : "no path");
  }
}

TEST_F(SettingsFlash, save_of_missing_or_invalid_settings_goes_back_to_the_stored_ones) {
  ASSERT_EQ(fl_write_conf("/mnt/ramdisk//env/system.conf"), 0) << "by another name";
  const Flash stored = read_flash();
  for (const string& settings : {string(), settings_text("bad\t")}) {
    lose_power();
    if (!settings.empty()) put(settings);
    EXPECT_TRUE(fl_write_conf(kSettings) == -1 && title_of_settings() == "saved") << settings;
    EXPECT_TRUE(traced("check config file fail\n") && read_flash() == stored) << settings;
  }
  write_flash({}), lose_power();
  alarm(20);  // restoring the defaults takes the lock that the save held
  EXPECT_TRUE(fl_write_conf(kSettings) == -1 && title_of_settings() == "defaults");
  alarm(0);
}

TEST_F(SettingsFlash, save_reports_a_failed_normal_copy_only) {
  for (const auto& [device, label, result] : {tuple{kNormalDevice, "MTD_CONF0", -2}, {kBackupDevice, "MTD_CONF1", 0}}) {
    const Flash before = read_flash();
    put(settings_text(label));
    chmod(device, 0444);
    EXPECT_EQ(fl_write_conf(kSettings), result);
    chmod(device, 0644);
    EXPECT_TRUE(traced(string("in ") + label + " is wrong\n"));
    const auto& [normal, backup] = read_flash();
    EXPECT_TRUE((normal == before.first) == (result != 0) && (backup == before.second) == (result == 0)) << label;
  }
}

TEST_F(SettingsFlash, archive_larger_than_a_partition_is_refused) {
  ASSERT_EQ(fl_write_conf(kSettings), 0);
  const string small = read_partition(kNormalDevice), large = small + kErased;
  const bool chip = on_chip_without("partitions of two sizes, files that grow");
  const string noise = chip ? "8400000" : "300000";
  EXPECT_EQ(system(("head -c " + noise + " /dev/urandom > /mnt/ramdisk/env/noise").c_str()), 0);
  for (const Flash& flash :
       chip ? std::vector<Flash>{{small, small}} : std::vector<Flash>{{small, large}, {large, small}}) {
    write_flash(flash);
    EXPECT_EQ(fl_write_conf(kSettings), -2);
    EXPECT_EQ(kt_flash_set_env(flash.first == small ? 0 : 1), -1);
    EXPECT_TRUE(read_flash() == flash) << "also the one that has the room";
  }
  if (chip) return;
  for (const char* file : {"", "no whole units of 64 KiB"}) {
    write_flash({file, file});
    EXPECT_EQ(fl_write_conf(kSettings), 0) << "files that are no partitions grow";
  }
}

TEST_F(SettingsFlash, save_waits_for_the_lock_over_signals) {
  expect_waits_for_lock("/tmp/cgi_locker.lock",
                        [] { return fl_write_conf(kSettings) + !traced("try locking file.\n"); });
}

TEST_F(SettingsFlash, eight_processes_change_and_save_at_once) {
  EXPECT_TRUE(in_processes(8, [](int process) {
    int failed = 0;
    for (int i = 0; i < 3; ++i)
      failed |= PRO_SetInt("p", to_string(process).c_str(), i, kSettings) | fl_write_conf(kSettings);
    return failed;
  }));
  lose_power();
  EXPECT_EQ(fl_read_conf(kSettings), 0);
  for (int process = 0; process < 8; ++process)
    EXPECT_NE(read_file(kSettings).find(to_string(process) + "=2\n"), string::npos);
}

TEST_F(SettingsFlash, line_feeds_of_valid_files_are_counted) {
  const tuple<string, int> kCases[] = {
      {"", 0},          {"a", 0},     {"a\n", 1},   {"a\nb", 1},  {" ~\r\n\n", 2},
      {"a\n\tb\n", -3}, {"\x7F", -3}, {"\x80", -3}, {"\x1F", -3}, {string("a\n\0\x01\n", 5), 1}};
  testing::internal::CaptureStdout();
  for (const auto& [content, lines] : kCases) {
    write_file("/tmp/count", content);
    EXPECT_EQ(calc_conf_line_num_and_check_ascii("/tmp/count"), lines) << content;
  }
  const auto count = calc_conf_line_num_and_check_ascii;
  EXPECT_EQ((Results{count(nullptr), count("/tmp/none"), count("/tmp"), fflush(stdout)}), (Results{-1, -2, -2, 0}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "File name is NULL\nFail to open file\nFail to open file\n");
}

TEST_F(SettingsFlash, one_copy_is_stored_beside_an_equal_one_only) {
  write_file(kLines, "3");
  ASSERT_EQ(fl_write_conf(kSettings), 0);
  const string stored = read_partition(kNormalDevice);
  write_partition(kNormalDevice, kErased);
  EXPECT_EQ(kt_flash_set_env(0), 0);
  EXPECT_TRUE(read_partition(kNormalDevice) == stored && traced("open MTD_CONF0\n") && !traced("line control file"));
  put(settings_text("other"));
  EXPECT_EQ(kt_flash_set_env(0), 0) << "the backup copy differs: gives up without the header";
  const string given_up = read_partition(kNormalDevice);
  EXPECT_TRUE(given_up.substr(0, 24) == stored.substr(0, 24) && given_up.substr(24, 500) != stored.substr(24, 500));
}

TEST_F(SettingsFlash, line_control_file_is_kept_right) {
  lose_power();
  EXPECT_EQ(kt_flash_set_env(0), -1) << "no directory";
  put(settings_text("saved"));
  EXPECT_TRUE(kt_flash_set_env(2) == -1 && !exists(kLines));
  for (const char* stale : {"(none)", "17", "3\n", "33"}) {
    if (*stale != '(') write_file(kLines, stale);
    EXPECT_TRUE(kt_flash_set_env(0) == 0 && read_file(kLines) == "3") << stale;
  }
  EXPECT_TRUE(traced("can't find line control file. \n") && traced("line_cnt = 3.\n"));
  chmod(kLines.c_str(), 0444);
  EXPECT_EQ(kt_flash_set_env(0), 0) << "rewritten without a change";
  unlink(kLines.c_str()), put(settings_text("a\tb"));
  EXPECT_TRUE(kt_flash_set_env(0) == -1 && traced("fail. line_cnt = -3\n") && !exists(kLines));
  write_file(kLines, "3");
  EXPECT_TRUE(kt_flash_set_env(0) == -1 && traced("validate fail \n") && !exists(kFolder));
}

}  // namespace
