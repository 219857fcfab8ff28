#include "tools/flash_stages.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/io.h"
#include "base/string_buffer.h"
#include "tools/flash_copies.h"

namespace kt::tools {
namespace {

constexpr int kPause_ms = 10;

// In the order in which a save writes them.
constexpr struct {
  const char* partition;
  const char* text;
} kWrites[] = {{kPartitions[kBackupIndex], "writing the backup copy"},
               {kPartitions[kNormalIndex], "writing the normal copy"}};
constexpr int kWriteCount = 2;

// Past the buffer of standard output: what a lost terminal refuses must not count
// as a failure of the command.
void print_stage(const char* text) {
  StringBuffer<40> line;
  line.append_format("%s\n", text);
  (void)write_fully(STDOUT_FILENO, line.c_str(), line.size());
}

[[nodiscard]] bool is_locked_by(pid_t saver, int fd) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fd >= 0 && ::fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK &&
         lock.l_pid == saver;
}

// Prints the stages up to `last` that were not printed yet.
void print_up_to(int last, int& printed) {
  while (printed <= last) print_stage(kWrites[printed++].text);
}

[[noreturn]] void watch_until(int end) {
  unique_fd partitions[kWriteCount];
  for (int i = 0; i < kWriteCount; ++i) partitions[i] = open_fd(kWrites[i].partition, O_RDONLY);
  const pid_t saver = ::getppid();
  int printed = 0;
  pollfd over = {end, POLLIN, 0};
  while (::poll(&over, 1, kPause_ms) == 0) {
    for (int i = printed; i < kWriteCount; ++i) {
      if (is_locked_by(saver, partitions[i].get())) print_up_to(i, printed);
    }
  }
  char saved;
  if (::read(end, &saved, 1) == 1) print_up_to(kWriteCount - 1, printed);
  ::_exit(0);
}

}  // namespace

SaveStages::SaveStages() : shown_(::isatty(STDOUT_FILENO) == 1) {
  // A save that was sent to the background does not stop at its first line.
  if (shown_) (void)signal(SIGTTOU, SIG_IGN);
}

void SaveStages::show(const char* stage) const {
  if (shown_) print_stage(stage);
}

void SaveStages::watch() {
  int ends[2];
  if (!shown_ || ::pipe2(ends, O_CLOEXEC) != 0) return;
  unique_fd end(ends[0]);
  end_.reset(ends[1]);
  watcher_ = ::fork();
  if (watcher_ != 0) return;
  end_.reset();
  watch_until(end.get());
}

void SaveStages::end_watch(bool saved) {
  if (watcher_ > 0) {
    if (saved) (void)write_fully(end_.get(), "", 1);
    end_.reset();
    (void)retry_eintr([this] { return ::waitpid(watcher_, nullptr, 0); });
  }
  watcher_ = -1;
}

}  // namespace kt::tools
