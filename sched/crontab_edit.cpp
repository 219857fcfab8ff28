#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <utility>

#include "base/io.h"
#include "base/paths.h"
#include "base/unique_fd.h"
#include "ktcomm/sched.h"
#include "sched/crontab_copy.h"
#include "sched/crontab_line.h"

namespace kt {
namespace {

constexpr char kHeader[] =
    "SHELL=/bin/sh\n"
    "PATH=/sbin:/bin:/usr/sbin:/usr/bin:/usr/local/bin\n"
    "MAILTO=root\n"
    "HOME=/\n"
    "\n"
    "# run-parts\n";

constexpr size_t kBlanksBeforeCommand = 6;

enum : int { kNotReplaced = -1, kInvalidRecord = -2, kNotCreated = -3 };

bool is_line(const CrontabPiece& piece, std::string_view line) {
  return piece.view() == line;
}

// The same for a last line that lacks its line feed, which it is about to get: a
// job that is added twice must not run twice.
bool will_be_line(const CrontabPiece& piece, std::string_view line) {
  if (!piece.ends_line()) line.remove_suffix(1);
  return is_line(piece, line);
}

// A word that reaches the end of a piece may go on in the next one.
bool runs_command(const CrontabPiece& piece, std::string_view command) {
  const std::string_view rest = after_blanks(piece.view(), kBlanksBeforeCommand);
  const size_t end = rest.find_first_of(" \n");
  if (end == std::string_view::npos) return piece.reaches_line_end() && rest == command;
  return std::string_view(rest.data(), end) == command;
}

// What opening the crontab has failed with tells whether there is one: one that
// cannot be opened now must not be taken for missing and be created anew.
bool is_missing(int error) {
  return error == ENOENT || error == ENOTDIR;
}

[[nodiscard]] bool create_with_header() {
  const unique_fd crontab = open_fd(paths::kCrontab, O_WRONLY | O_CREAT | O_TRUNC, kCrontabMode);
  if (!crontab.ok()) return false;
  if (write_fully(crontab.get(), kHeader, sizeof kHeader - 1)) return true;
  (void)::unlink(paths::kCrontab);  // part of a header is no crontab
  return false;
}

// Rewrites the crontab from the lines of `source` (null has none) but for the
// unwanted ones, and `added`, which may be empty.
template <typename F>
int rewrite(unique_fd source, F is_unwanted, std::string_view added) {
  CrontabCopy copy;
  if (!copy.create()) return kNotCreated;
  if (source.ok() && !copy.take_lines(source.get(), is_unwanted)) return kNotReplaced;
  source.reset();
  if (!added.empty() && !copy.add_line(added)) return kNotReplaced;
  return copy.put_in_place() ? 0 : kNotReplaced;
}

int add_line(SchdEntry* entry, int linear) {
  if (SCHDCheckField(entry) != 0) return kInvalidRecord;
  const CrontabLine line(*entry, linear);
  unique_fd crontab = open_fd(paths::kCrontab, O_RDONLY);
  if (!crontab.ok()) {
    if (!is_missing(errno)) return kNotReplaced;
    // Users of a new crontab rely on it holding their line alone: the header is
    // not taken over into the copy, and stays only when the copy fails.
    if (!create_with_header()) return kNotCreated;
  }
  return rewrite(
      std::move(crontab),
      [&](const CrontabPiece& piece) { return will_be_line(piece, line.view()); }, line.view());
}

template <typename F>
int remove_lines(F is_unwanted) {
  unique_fd crontab = open_fd(paths::kCrontab, O_RDONLY);
  if (!crontab.ok()) return is_missing(errno) ? 0 : kNotReplaced;
  return rewrite(std::move(crontab), is_unwanted, {});
}

int remove_line(SchdEntry* entry, int linear) {
  if (SCHDCheckField(entry) != 0) return kInvalidRecord;
  const CrontabLine line(*entry, linear);
  return remove_lines([&](const CrontabPiece& piece) { return is_line(piece, line.view()); });
}

}  // namespace
}  // namespace kt

using namespace kt;

int SCHDAddSchedule(SchdEntry* entry) {
  return add_line(entry, 0);
}

int SCHDAddLinearSchedule(SchdEntry* entry) {
  return add_line(entry, 1);
}

int SCHDDelSchedule(SchdEntry* entry) {
  return remove_line(entry, 0);
}

int SCHDDelLinearSchedule(SchdEntry* entry) {
  return remove_line(entry, 1);
}

int SCHDDelScheduleByCmd(SchdEntry* entry) {
  if (SCHDCheckField(entry) != 0) return kInvalidRecord;
  const std::string_view command(entry->command);
  return remove_lines([=](const CrontabPiece& piece) { return runs_command(piece, command); });
}
