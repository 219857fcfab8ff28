// The crontab of 2,000 lines, and a compiled weekly schedule.
#include <fcntl.h>
#include <ktcomm/sched.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "bench/bench.h"
#include "bench/hand.h"

namespace kt::bench {
namespace {

constexpr char kCrontab[] = "/mnt/ramdisk/crontab";

SchdEntry job(const char* command) {
  SchdEntry entry = {};
  (void)snprintf(entry.command, sizeof entry.command, "%s", command);
  for (int* number = &entry.wday_step; number <= &entry.min_end; ++number) *number = -1;
  entry.hour_start = 3;
  entry.min_start = 5;
  return entry;
}

void fill_crontab() {
  std::string text;
  for (int i = 0; i < 2000; ++i) {
    char line[128];
    (void)snprintf(line, sizeof line, "%d %d * * %d root /usr/bin/job%04d --quiet\n", i % 60,
                   i % 24, i % 7, i);
    text += line;
  }
  write_text(kCrontab, text);
}

// Copies the lines of `in` but for those that are `line`, a block at a time.
void copy_lines(int in, int out, const char* line, size_t length) {
  static char text[8192], kept[16384];
  size_t held = 0, size = 0;
  for (ssize_t count; (count = read(in, text + held, 4096)) > 0;) {
    const char *at = text, *const end = text + held + count;
    while (const char* const feed =
               static_cast<const char*>(memchr(at, '\n', static_cast<size_t>(end - at)))) {
      const auto this_length = static_cast<size_t>(feed - at) + 1;
      if (this_length != length || memcmp(at, line, length) != 0) {
        memcpy(kept + size, at, this_length);
        size += this_length;
      }
      at = feed + 1;
    }
    held = static_cast<size_t>(end - at);
    memmove(text, at, held);
    if (size >= 4096) {
      require(write(out, kept, size) == static_cast<ssize_t>(size), "write");
      size = 0;
    }
  }
  require(held == 0 && write(out, kept, size) == static_cast<ssize_t>(size), "write");
}

void add_by_hand(const SchdEntry& entry) {
  char line[181] = "", path[18], suffix[5] = "";
  const int length = snprintf(line, sizeof line, "%d %d * * * root %s\n", entry.min_start,
                              entry.hour_start, entry.command);
  const time_t now = time(nullptr);
  (void)strftime(suffix, 4, "%M%S", localtime(&now));
  (void)snprintf(path, sizeof path, "/tmp/crontab.%s", suffix);

  const int crontab = open(kCrontab, O_RDONLY | O_CLOEXEC);
  const int copy = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  copy_lines(crontab, copy, line, static_cast<size_t>(length));
  require(write(copy, line, static_cast<size_t>(length)) == length, "write");
  close(crontab);
  close(copy);

  const int in = open(path, O_RDONLY | O_CLOEXEC);
  const int out = open(kCrontab, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  char chunk[256];
  for (ssize_t count; (count = read(in, chunk, sizeof chunk)) > 0;) {
    require(write(out, chunk, static_cast<size_t>(count)) == count, "write");
  }
  close(in);
  close(out);
  unlink(path);
}

void add_crontab() {
  static SchdEntry entry = job("/usr/bin/report");
  fill_crontab();
  require(SCHDAddSchedule(&entry) == 0, "SCHDAddSchedule");
  const std::string by_library = read_text(kCrontab);
  add_by_hand(entry);
  require(read_text(kCrontab) == by_library, "making the same crontab");
  add(
      "crontab of 2,000 lines, adding a job", {{Aim::kRatio, 1.1}, 201, 1},
      [] { require(SCHDAddSchedule(&entry) == 0, "SCHDAddSchedule"); }, [] { add_by_hand(entry); });
}

int local_minute() {
  const time_t now = time(nullptr);
  struct tm local;
  (void)localtime_r(&now, &local);
  return local.tm_hour * 60 + local.tm_min;
}

void add_slots() {
  static SchSlotSet set;
  char items[] =
      "1,00:00,00:01;2,00:00,00:01;3,00:00,00:01;4,00:00,00:01;5,00:00,00:01;"
      "6,00:00,00:01;7,00:00,00:01;8,00:00,00:01;9,00:00,00:01;9,00:01,00:02";
  require(set_sch_fmt(&set, 1, items) == 0, "set_sch_fmt");
  const auto minimum = [] { benchmark::DoNotOptimize(local_minute()); };
  add(
      "chk_sch_from_mm, cached / localtime_r", {{Aim::kBeside, 100}},
      [] { benchmark::DoNotOptimize(chk_sch_from_mm(&set)); }, minimum);
  add(
      "chk_sch_from_mm, not cached / localtime_r", {{Aim::kBeside, 100}},
      [] {
        set.last_minute = 1440;
        benchmark::DoNotOptimize(chk_sch_from_mm(&set));
      },
      minimum);
}

}  // namespace

void add_all() {
  shell("mkdir -p /mnt/ramdisk");
  add_crontab();
  add_slots();
}

}  // namespace kt::bench
