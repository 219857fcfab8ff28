// The clock's settings: time servers, daylight saving, time zones.
#include "tests/records_support.h"

using namespace kt::test;

namespace {

using Clock = Records;

NTPConf conf_of(int mode, int date, int hour, int minute, const char* server) {
  NTPConf conf = {mode, {"", "b c", "d:"}, 20240229, date, hour, minute, "1/2"};
  return strcpy(conf.servers[0], server), conf;
}

// The keys of `conf` in the order of writing, up to but not including one of them.
string keys_of(const NTPConf& conf, const char* end = "?") {
  char text[600];
  snprintf(text, sizeof text,
           "[SYSTEM]\nntp_updated_time=%d\nntp_mode=%d\nntp_server=%.64s\nntp_server2=%.64s\nntp_server3=%.64s\n"
           "ntp_retry=%.64s\nntp_date=%d\nntp_hour=%d\nntp_min=%d\n",
           conf.updated_time, conf.mode, conf.servers[0], conf.servers[1], conf.servers[2], conf.retry, conf.date,
           conf.hour, conf.minute);
  return string(text).substr(0, string(text).find(end));
}

// `time` is when the job runs afterwards: "-" never, "!" as before, for `conf` is refused.
void expect_written(const NTPConf& conf, const string& time) {
  const bool refused = time == "!", off = conf.mode == KT_NTP_OFF, cancels = !refused && !off;
  const string keys = keys_of(conf, refused ? "ntp_mode" : off ? "ntp_server2" : "?"), other = "0 * * * * root x\n";
  const string old = "1 2 * * * root ntp_setcron\n", retry = "5 * * * * root /usr/local/bin/kt_time_control -n\n";
  for (const bool pending : {false, true}) {
    write_file(kSettings, "");
    write_file(kCrontab, other + retry + old);
    if (pending) write_file(kRetry, "");
    EXPECT_EQ(NTPWriteData(&conf), refused ? -1 : 0);
    const string job = refused ? old : time == "-" ? "" : time + " root ntp_setcron\n";
    EXPECT_EQ(outcome(), keys + other + (pending && cancels ? "" : retry) + job + (pending && !cancels ? "!" : ""));
    unlink(kRetry);
  }
}

TEST_F(Clock, the_job_follows_the_settings) {
  // Mode, date, hour, minute, first server, time of the job.
  for_each_of(
      "1 0 4 5 Az09_-. 5 4 * * *|1 7 23 59 a 59 23 * * 0|1 1 0 0 z 0 0 * * 1|1 6 0 0 Z 0 0 * * 6|1 -1 4 5 x -|"
      "2 0 4 5 x -|-1 0 4 5 x -|0 8 -1 60 : -|1 -2 0 0 x !|1 8 0 0 x !|1 0 24 0 x !|1 0 -1 0 x !|1 0 0 60 x !|"
      "2 0 0 -2147483648 x !|2 0 0 0 \xE4 !|1 0 0 0 a: !|1 0 0 0 @ !|1 0 0 0 [ !|1 0 0 0 ` !|1 0 0 0 { !|1 0 0 0 / !",
      [](const string& text) {
        SCOPED_TRACE(text);
        int mode, date, hour, minute;
        char server[9], time[20];
        sscanf(text.c_str(), "%d %d %d %d %8s %19[^\n]", &mode, &date, &hour, &minute, server, time);
        expect_written(conf_of(mode, date, hour, minute, server), time);
      });
  for (const char* const server : {" ", "a b", "a\n"}) expect_written(conf_of(1, 0, 4, 5, server), "!");
  NTPConf full = conf_of(1, 2, 3, 4, "");
  expect_written(full, "4 3 * * 2");
  memset(full.servers, 'x', sizeof full.servers), memset(full.retry, 'x', 65);  // no NULs
  expect_written(full, "4 3 * * 2");
}

TEST_F(Clock, failing_steps) {
  const NTPConf on = conf_of(1, 0, 4, 5, "a"), off = conf_of(0, 0, 4, 5, "a");
  const std::tuple<NTPConf, const char*, const char*> kCases[] = {
      {conf_of(2, 0, 4, 5, "a"), "mkdir /mnt/ramdisk/crontab; touch /tmp/ntp_retry", "?"},
      {off, "mkdir /mnt/ramdisk/crontab", "ntp_mode"},
      {on, "chmod 555 /mnt/ramdisk", "?"}};
  for (const auto& [conf, preparation, end] : kCases) {
    SetUp();
    EXPECT_EQ(system(preparation) + NTPWriteData(&conf), -1) << preparation;
    EXPECT_EQ(read_file(kSettings) + (exists(kRetry) ? "!" : ""), keys_of(conf, end)) << preparation;
  }
  SetUp();
  expect_each_to_be_written(on, {0, 4, 69, 134, 200, 204, 208, 212, 216}, -1, NTPWriteData);
  expect_each_to_be_written(off, {4, 200}, -1, NTPWriteData);
}

TEST_F(Clock, what_is_read) {
  const string x64(64, 'x');
  const NTPConf defaults = {1, {"0.pool.ntp.org", "1.pool.ntp.org", "2.pool.ntp.org"}, 20160826, 0, 0, 0, "15/8"};
  NTPConf full = conf_of(-3, 99, -1, 60, x64.c_str()), conf;
  strcpy(full.retry, x64.c_str());
  const string longer = "[SYSTEM]\nntp_server=" + x64 + "y\nntp_retry=" + x64 + "yy\n" + keys_of(full).substr(9);
  for (const auto& [keys, read] : {std::pair(string(), defaults), {keys_of(full), full}, {longer, full}}) {
    write_file(kSettings, keys);
    memset(&conf, '#', sizeof conf);
    EXPECT_EQ(NTPReadData(&conf), 0);
    EXPECT_EQ(keys_of(conf), keys_of(read));
  }
  unlink(kSettings);
  EXPECT_EQ(NTPReadData(&conf) + NTPReadData(nullptr) + NTPWriteData(nullptr), -3);
  EXPECT_EQ(keys_of(conf), keys_of(full)) << "untouched";
}

TEST_F(Clock, the_time_control_program_is_started_in_the_background) {
  for (g_status = -1; g_status <= 1; ++g_status) EXPECT_EQ(SetNTP(), g_status == 0 ? 0 : -1);
  EXPECT_EQ(g_commands.substr(0, 62), "/usr/local/bin/kt_time_control -n > /dev/null 2> /dev/null &\n/");
}

TEST_F(Clock, daylight_saving) {
  int enabled = 7;
  EXPECT_EQ(ReadDayLightSaving(&enabled) + enabled + WriteDayLightSaving(-5), 0);
  EXPECT_EQ(outcome(), "[SYSTEM]\ndaylight_saving=-5\n");
  EXPECT_EQ(ReadDayLightSaving(&enabled) + enabled, -5);
  EXPECT_EQ(system("rm -r /mnt/ramdisk/env") + ReadDayLightSaving(&enabled) + WriteDayLightSaving(1), -2);
  EXPECT_EQ(ReadDayLightSaving(nullptr) + enabled, -6);
}

TEST(TimeZones, table_and_indices) {
  const int kCases[][2] = {{INT_MIN, 4}, {-1, 4},  {0, 0},  {32, 32},    {33, 32},
                           {34, 34},     {84, 84}, {85, 4}, {INT_MAX, 4}};
  for (const auto& [index, usable] : kCases) {
    int corrected = index;
    TIME_TimezoneCorrect(&corrected);
    EXPECT_EQ(corrected, usable) << index;
    EXPECT_EQ(TIME_TimezoneCheck(index), index == usable ? 0 : -1) << index;
  }
  TIME_TimezoneCorrect(nullptr);
  EXPECT_EQ(g_timezone_resv[1][0] + g_timezone_resv[1][1], -2);
  int sum = 0, weighed = 0;
  for (int i = 0; i < KT_TIME_ZONES; ++i) sum += kt_time_zone[i], weighed += i * get_time_zone_table()[i];
  EXPECT_TRUE(sum == 14525 && weighed == 1541675) << sum << ' ' << weighed;
}

}  // namespace
