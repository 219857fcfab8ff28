// cron_commands.cpp - jobs in the crontab: list, add and remove them.
#include <errno.h>
#include <ktcomm/sched.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/paths.h"
#include "base/text.h"
#include "base/unique_file.h"
#include "tools/crontab_lines.h"
#include "tools/edit_lock.h"
#include "tools/ktctl.h"
#include "tools/line_source.h"
#include "tools/plain_text.h"
#include "tools/printer.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"
#include "tools/would_edit_crontab.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

// ---- Listing --------------------------------------------------------------

constexpr size_t kColumns = kCronFields + 1;  // the fields and the user

struct Row {
  std::string_view columns[kColumns];
  std::string_view command;
  bool linear;
  bool nickname;
};

constexpr Row kHeader = {
    {"MINUTE", "HOUR", "MDAY", "MONTH", "WDAY", "USER"}, "COMMAND", false, false};

Row row_of(const CronColumns& job) {
  Row row = {{}, job.command, job.linear, job.nickname};
  std::copy(job.fields, job.fields + kCronFields, row.columns);
  row.columns[kCronFields] = job.user;
  return row;
}

void print_row(const Row& row, const size_t (&widths)[kColumns]) {
  (void)printf("%c ", row.linear ? 'L' : ' ');
  for (size_t i = 0; i < kColumns; ++i) {
    print_plain(row.columns[i]);
    (void)printf("%*s", static_cast<int>(widths[i] - row.columns[i].size() + 2), "");
  }
  print_plain(row.command);
  (void)putchar('\n');
}

void print_job(Printer& printer, int line, const Row& row) {
  constexpr const char* kNames[kColumns] = {"minute", "hour", "mday", "month", "wday", "user"};
  printer.begin_object(nullptr);
  printer.number("line", line);
  printer.flag("linear", row.linear);
  printer.text("nickname", row.nickname ? row.columns[0] : "");
  for (size_t i = 0; i < kColumns; ++i) {
    printer.text(kNames[i], i == 0 && row.nickname ? "" : row.columns[i]);
  }
  printer.text("command", row.command);
  printer.end_object();
}

// Calls `use` for each job and its line's number, and `skip` for each line that should
// be one. There may be no file.
template <typename F, typename G>
void for_each_job(FILE* file, F use, G skip) {
  if (file == nullptr) return;
  rewind(file);
  LineSource lines(file);
  while (lines.next()) {
    if (is_no_job(lines.line())) continue;
    const CronColumns job = split_job(lines.line());
    if (job.command.empty()) {
      skip(lines.number());
    } else {
      use(row_of(job), lines.number());
    }
  }
}

void list_for_people(FILE* file) {
  size_t widths[kColumns];
  for (size_t i = 0; i < kColumns; ++i) widths[i] = kHeader.columns[i].size();
  bool any = false;
  const auto widen = [&](const Row& row, int) {
    for (size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], row.columns[i].size());
    any = true;
  };
  const auto skip = [](int number) { (void)fail(kDone, "%s:%d: no job", paths::kCrontab, number); };
  for_each_job(file, widen, skip);
  if (any) print_row(kHeader, widths);
  for_each_job(
      file, [&](const Row& row, int) { print_row(row, widths); }, [](int) {});
}

void list_for_programs(const Request& request, FILE* file) {
  Printer printer(request);
  printer.begin_list("jobs");
  for_each_job(
      file, [&](const Row& row, int line) { print_job(printer, line, row); },
      [](int number) { (void)fail(kDone, "%s:%d: no job", paths::kCrontab, number); });
  printer.end_list();
}

// ---- A job from the command line ------------------------------------------

constexpr struct {
  int SchdEntry::*start;
  int SchdEntry::*end;
  int SchdEntry::*step;
} kPlaces[kCronFields] = {
    {&SchdEntry::min_start, &SchdEntry::min_end, &SchdEntry::min_step},
    {&SchdEntry::hour_start, &SchdEntry::hour_end, &SchdEntry::hour_step},
    {&SchdEntry::mday_start, &SchdEntry::mday_end, &SchdEntry::mday_step},
    {&SchdEntry::month_start, &SchdEntry::month_end, &SchdEntry::month_step},
    {&SchdEntry::wday_start, &SchdEntry::wday_end, &SchdEntry::wday_step},
};

SchdEntry empty_entry() {
  SchdEntry entry = {};
  for (const auto& place : kPlaces) {
    entry.*place.start = entry.*place.end = entry.*place.step = -1;
  }
  return entry;
}

int set_command(SchdEntry& entry, const char* what, const char* command) {
  if (!check_plain(what, command)) return kRefused;
  const size_t length = strlen(command);
  if (length == 0 || command[0] == ' ') {
    return fail(kRefused, "%s: it is empty or begins with a blank", what);
  }
  if (length >= sizeof entry.command) {
    return fail(kRefused, "%s: %zu characters, %zu fit", what, length, sizeof entry.command - 1);
  }
  copy_cut(entry.command, sizeof entry.command, command);
  return kDone;
}

int read_job(char** arguments, SchdEntry& entry) {
  entry = empty_entry();
  for (size_t i = 0; i < kCronFields; ++i) {
    if (!check_plain(kCronField[i].name, arguments[i])) return kRefused;
    CronRange range;
    Reason reason;
    if (!parse_range(kCronField[i], arguments[i], range, reason)) {
      return fail(kRefused, "%s", reason.c_str());
    }
    // The record knows steps of ranges only.
    if (range.step != -1 && range.start == -1) {
      range.start = kCronField[i].lowest;
      range.end = kCronField[i].highest;
    }
    entry.*kPlaces[i].start = range.start;
    entry.*kPlaces[i].end = range.end;
    entry.*kPlaces[i].step = range.step;
  }
  return set_command(entry, "COMMAND", arguments[kCronFields]);
}

// ---- Editing --------------------------------------------------------------

int explain(int result) {
  switch (result) {
    case 0:
      return kDone;
    case -2:
      return fail(kRefused, "no job of a crontab");
    case -3:
      return fail(kSystemError, "%s: not changed: it or its copy in /tmp could not be created",
                  paths::kCrontab);
    default:
      return fail(kSystemError,
                  "%s: not changed: it could not be read or written, or its copy in /tmp not be "
                  "written",
                  paths::kCrontab);
  }
}

// The size of the crontab; -1 when there is none.
long long crontab_size() {
  struct stat status;
  return ::stat(paths::kCrontab, &status) == 0 ? status.st_size : -1;
}

int no_such_job() {
  return fail(kNotFound, "%s: there is no such job", paths::kCrontab);
}

// The line of a job, without its line feed.
StringBuffer<180> line_of(const SchdEntry& entry, bool linear) {
  char text[181];
  (void)SCHDConvtUserFormat(&entry, text, sizeof text, linear ? 1 : 0);  // such jobs fit
  StringBuffer<180> line;
  line.append({text, strcspn(text, "\n")});
  return line;
}

int would_add(std::string_view line) {
  int told = 0;
  const int code = tell_crontab_edit({.line = line, .command = {}, .added = line}, told);
  return code == kDone && told == 0 ? would_change_nothing() : code;
}

int would_remove(const CrontabEdit& edit) {
  int told = 0;
  const int code = tell_crontab_edit(edit, told);
  return code == kDone && told == 0 ? no_such_job() : code;
}

int remove_with(const Request& request, int (*remove)(SchdEntry*), SchdEntry& entry) {
  FlockFile lock;
  if (const int code = lock_edit(lock, paths::kCrontabEditLock); code != kDone) return code;
  if (request.dry_run()) {
    if (remove == SCHDDelScheduleByCmd) {
      return would_remove({.line = {}, .command = entry.command, .added = {}});
    }
    const auto line = line_of(entry, remove == SCHDDelLinearSchedule);
    return would_remove({.line = line.view(), .command = {}, .added = {}});
  }
  const Uninterrupted uninterrupted;
  const long long before = crontab_size();
  const int code = explain(remove(&entry));
  if (code != kDone || crontab_size() < before) return code;
  return no_such_job();
}

int remove_by_command(const Request& request, const char* word) {
  if (request.count != 0 || request.has(Option::kLinear)) {
    return fail(kUsage, "--command stands alone; see ktctl cron remove --help");
  }
  SchdEntry entry = empty_entry();
  const int unfit = set_command(entry, "--command", word);
  if (unfit != kDone) return unfit;
  if (strchr(word, ' ') != nullptr) {
    return fail(kRefused, "--command: %s: one word is wanted, the command's first", word);
  }
  return remove_with(request, SCHDDelScheduleByCmd, entry);
}

}  // namespace

int list_jobs(const Request& request) {
  unique_file file;
  if (crontab_size() >= 0 || errno != ENOENT) {
    const int unfit = open_settings(paths::kCrontab, file);
    if (unfit != kDone) return unfit;
  }
  if (request.for_programs()) {
    list_for_programs(request, file.get());
  } else {
    list_for_people(file.get());
  }
  return !file.ok() || ferror(file.get()) == 0 ? kDone : fail_errno(paths::kCrontab);
}

int add_job(const Request& request) {
  SchdEntry entry;
  const int unfit = read_job(request.arguments, entry);
  if (unfit != kDone) return unfit;
  FlockFile lock;
  if (const int code = lock_edit(lock, paths::kCrontabEditLock); code != kDone) return code;
  const bool linear = request.has(Option::kLinear);
  if (request.dry_run()) return would_add(line_of(entry, linear).view());
  const Uninterrupted uninterrupted;
  return explain(linear ? SCHDAddLinearSchedule(&entry) : SCHDAddSchedule(&entry));
}

int remove_job(const Request& request) {
  if (const char* const word = request.value(Option::kCommand)) {
    return remove_by_command(request, word);
  }
  if (request.count != static_cast<int>(kCronFields) + 1) {
    return fail(kUsage,
                "cron remove takes a whole job, or --command; see ktctl cron remove --help");
  }
  SchdEntry entry;
  const int unfit = read_job(request.arguments, entry);
  if (unfit != kDone) return unfit;
  return remove_with(request,
                     request.has(Option::kLinear) ? SCHDDelLinearSchedule : SCHDDelSchedule, entry);
}

}  // namespace kt::tools
