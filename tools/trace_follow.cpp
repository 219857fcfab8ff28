// trace_follow.cpp - a trace as it grows.
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/io.h"
#include "base/unique_fd.h"
#include "tools/ktctl.h"
#include "tools/trace_files.h"

namespace kt::tools {
namespace {

constexpr int kPause_ms = 100;

class Follower {
 public:
  explicit Follower(TraceLog log) : log_(log) {}

  // Prints what was added since the last time; the exit code.
  [[nodiscard]] int print_news();

 private:
  [[nodiscard]] bool was_replaced() const;
  [[nodiscard]] bool open_next(int current);
  [[nodiscard]] bool print_rest();

  TraceLog log_;
  int number_ = -1;  // of the file that is open
  unique_fd file_;
};

// Whether another file, or none, has the name now of the one that is open, or somebody
// has emptied that.
bool Follower::was_replaced() const {
  struct stat ours, named;
  return ::stat(trace_file(log_, number_).c_str(), &named) != 0 ||
         ::fstat(file_.get(), &ours) != 0 || ours.st_ino != named.st_ino ||
         ours.st_dev != named.st_dev || ours.st_size < ::lseek(file_.get(), 0, SEEK_CUR);
}

// Opens the first file behind the one that is open, skipping those that a rotation
// has deleted; false when there is none yet.
bool Follower::open_next(int current) {
  int number = file_.ok() ? std::max(number_ + 1, oldest_trace_file(log_, current)) : current;
  for (; number <= current; ++number) {
    unique_fd next = open_fd(trace_file(log_, number).c_str(), O_RDONLY);
    if (!next.ok()) continue;
    file_ = static_cast<unique_fd&&>(next);
    number_ = number;
    return true;
  }
  return false;
}

bool Follower::print_rest() {
  char piece[4096];
  ssize_t size;
  while ((size = read_fully(file_.get(), piece, sizeof piece)) > 0) {
    (void)fwrite(piece, 1, static_cast<size_t>(size), stdout);
  }
  return size == 0;
}

int Follower::print_news() {
  for (;;) {
    // Asked before the rest is read: what is older than the current file then gets no
    // more lines.
    const auto current = current_trace_file(log_);
    if (file_.ok() && !print_rest()) return fail_errno(trace_file(log_, number_).c_str());
    if (!current) return kDone;
    const bool begun_anew =
        file_.ok() && (*current < number_ || (*current == number_ && was_replaced()));
    if (begun_anew) file_.reset();
    if (!open_next(*current)) return kDone;
  }
}

// Waits for a moment; false when nobody reads standard output any more.
[[nodiscard]] bool pause_while_read() {
  pollfd output = {STDOUT_FILENO, 0, 0};
  return ::poll(&output, 1, kPause_ms) <= 0;
}

}  // namespace

int follow_trace(const Request& request) {
  TraceLog log;
  if (const int code = read_trace_log(request, log); code != kDone) return code;
  Follower follower(log);
  do {
    if (const int code = follower.print_news(); code != kDone) return code;
    if (fflush(stdout) != 0) break;  // which is said at the end
  } while (pause_while_read());
  return kDone;
}

}  // namespace kt::tools
