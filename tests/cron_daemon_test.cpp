// A real cron daemon runs the crontab that the library writes.
#include <ktcomm/sched.h>
#include <string.h>
#include <time.h>

#include "tests/support.h"

using namespace kt::test;

namespace {

constexpr char kDaemon[] = "/usr/lib/crond/crond";

SchdEntry job(const char* command) {
  SchdEntry entry;
  memset(&entry, -1, sizeof entry);
  snprintf(entry.command, sizeof entry.command, "%s", command);
  return entry;
}

bool wait_for(const char* path, int timeout_s) {
  for (int i = 0; i < timeout_s * 20 && !exists(path); ++i) usleep(50000);
  return exists(path);
}

TEST(CronDaemon, runs_the_jobs_that_are_due_as_root) {
  ASSERT_TRUE(exists(kDaemon)) << "the camera has no real cron daemon (package cron)";
  // The daemon's clock is set ahead so that its next minute begins in 5 seconds.
  const time_t now = time(nullptr), next = now - now % 60 + 60;
  setenv("CROND_AHEAD_S", std::to_string(next - 5 - now).c_str(), 1);
  const struct tm due = *localtime(&next);

  SchdEntry on_date = job("id -u >/tmp/on_date");
  on_date.min_start = due.tm_min;
  on_date.hour_start = due.tm_hour;
  on_date.mday_start = due.tm_mday;
  on_date.month_start = due.tm_mon + 1;
  SchdEntry in_range = job("touch /tmp/in_range");
  in_range.min_start = due.tm_min % 2;
  in_range.min_end = 59;
  in_range.min_step = 2;
  in_range.wday_start = in_range.wday_end = due.tm_wday;
  SchdEntry other_minute = in_range, other_day = on_date, removed = job("touch /tmp/removed");
  strcpy(other_minute.command, "touch /tmp/other_minute");
  other_minute.min_start = 1 - due.tm_min % 2;
  strcpy(other_day.command, "touch /tmp/other_day");
  other_day.mday_start = other_day.mday_start % 28 + 1;
  umask(0);  // the daemon refuses a crontab that others may write
  for (SchdEntry* entry : {&removed, &other_minute, &other_day, &on_date, &in_range}) {
    ASSERT_EQ(SCHDAddSchedule(entry), 0);
  }
  ASSERT_EQ(SCHDDelSchedule(&removed), 0);

  ASSERT_EQ(SCHDStartSchedule(), 0);
  EXPECT_TRUE(wait_for("/tmp/in_range", 20)) << read_file("/mnt/ramdisk/crontab");
  EXPECT_TRUE(wait_for("/tmp/on_date", 5));
  usleep(200000);
  EXPECT_EQ(read_file("/tmp/on_date"), "0\n");
  for (const char* path : {"/tmp/other_minute", "/tmp/other_day", "/tmp/removed"}) {
    EXPECT_FALSE(exists(path)) << path;
  }
  ASSERT_EQ(SCHDStopSchedule(), 0);
  EXPECT_EQ(system("i=0; while pidof crond; do sleep 0.05; [ $((i += 1)) -lt 100 ] || exit; done "
                   ">/dev/null; ! pidof crond >/dev/null"),
            0);
}

}  // namespace
