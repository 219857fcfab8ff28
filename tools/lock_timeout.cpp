#include "tools/lock_timeout.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "base/string_buffer.h"
#include "tools/ktctl.h"
#include "tools/lock_users.h"

namespace kt::tools {
namespace {

constexpr useconds_t kPause_us = 10000;

constinit bool limited = false;
constinit int limit_s = 0;
constinit timespec deadline = {};  // 0 until a lock has to be waited for

[[nodiscard]] bool is_over() {
  timespec now = {};
  (void)::clock_gettime(CLOCK_MONOTONIC, &now);
  if (deadline.tv_sec == 0) deadline = {now.tv_sec + limit_s, now.tv_nsec};
  return now.tv_sec > deadline.tv_sec ||
         (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

// Tries until `try_once` has the lock or the time is over; false with errno,
// EWOULDBLOCK for the latter.
template <typename F>
[[nodiscard]] bool lock_in_time(F try_once) {
  while (!try_once()) {
    if (errno != EWOULDBLOCK || is_over()) return false;
    (void)::usleep(kPause_us);
  }
  return true;
}

int fail_timeout(int fd, const char* path) {
  return fail(kLockTimeout, "%s: %s", path, describe_holder(fd).c_str());
}

[[noreturn]] void end_for_timeout(int fd) {
  StringBuffer<40> link;
  link.append_format("/proc/self/fd/%d", fd);
  char path[256];
  const ssize_t length = ::readlink(link.c_str(), path, sizeof path - 1);
  path[length > 0 ? length : 0] = '\0';
  ::exit(fail_timeout(fd, length > 0 ? path : "a lock"));
}

}  // namespace

void set_lock_timeout(int seconds) {
  limit_s = seconds;
  deadline = {};
  limited = true;
}

int take_lock(FlockFile& lock, const char* path, mode_t mode) {
  const auto wait = [&lock] {
    if (!limited) return lock.lock_over_signals();
    return lock_in_time([&lock] { return lock.lock_at_once(); });
  };
  if (lock.open(path, mode) && wait()) return kDone;
  if (errno == EWOULDBLOCK) return fail_timeout(lock.fd(), path);
  return fail(kSystemError, "%s: %s", path, strerror(errno));
}

}  // namespace kt::tools

using namespace kt::tools;

// Takes the place of the C library's for the library, too, whose writers wait for the
// lock of the settings themselves: the process ends there, where they have not done
// anything yet, once the time is over. What they then begin is not given up any more:
// many settings are several writes. It throws what the C library's does.
extern "C" [[gnu::visibility("default")]] int flock(int fd,
                                                    int operation) noexcept(noexcept(::flock(0,
                                                                                             0))) {
  const auto call = [=](int flags) {
    return static_cast<int>(::syscall(SYS_flock, fd, operation | flags));
  };
  const bool waits = (operation & (LOCK_NB | LOCK_UN)) == 0;
  if (!limited || !waits) return call(0);
  if (lock_in_time([&] { return call(LOCK_NB) == 0; })) {
    limited = false;
    return 0;
  }
  if (errno == EWOULDBLOCK) end_for_timeout(fd);
  return -1;
}
