#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <unistd.h>

#include "base/io.h"
#include "base/scope_exit.h"
#include "base/unique_fd.h"
#include "ktcomm/util_loop.h"

namespace kt {
namespace {

static_assert(sizeof(int) == 4, "the pipe carries numbers of 4 bytes");

// The one pipe of the process. The handler sees the end it writes to, or -1.
struct SignalPipe {
  int read_end;
  volatile sig_atomic_t write_end;
};
constinit SignalPipe g_pipe = {-1, -1};

// Takes over new ends and closes the former ones, of which the handler has let go
// by then: the number of a closed descriptor may soon be somebody else's.
void replace_pipe(unique_fd read_end, unique_fd write_end) {
  const unique_fd old_read(g_pipe.read_end);
  const unique_fd old_write(g_pipe.write_end);
  g_pipe.write_end = write_end.release();
  g_pipe.read_end = read_end.release();
}

void report_signal(int signo) {
  const ErrnoKeeper keeper;
  const int fd = g_pipe.write_end;
  // Does not block: a process with a full pipe would hang in its handler for ever.
  if (fd >= 0) (void)!write(fd, &signo, sizeof signo);
}

[[nodiscard]] bool make_pipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  unique_fd read_end(ends[0]);
  unique_fd write_end(ends[1]);
  if (fcntl(write_end.get(), F_SETFL, O_NONBLOCK) != 0) return false;
  replace_pipe(static_cast<unique_fd&&>(read_end), static_cast<unique_fd&&>(write_end));
  return true;
}

}  // namespace
}  // namespace kt

int cf_sigfd_open(int signo, ...) {
  if (!kt::make_pipe()) return -1;
  va_list more;
  va_start(more, signo);
  for (int next = signo; next > 0; next = va_arg(more, int)) {
    (void)signal(next, kt::report_signal);  // what is no signal cannot come either
  }
  va_end(more);
  return kt::g_pipe.read_end;
}

void cf_sigfd_close(void) {
  kt::replace_pipe(kt::unique_fd(), kt::unique_fd());
}

int cf_sigfd_get_next_signal(int fd) {
  int signo;
  return kt::read_fully(fd, &signo, sizeof signo) == sizeof signo ? signo : -1;
}
