#include "tools/lock_timeout.h"

#include <errno.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "tools/ktctl.h"

namespace kt::tools {
namespace {

constexpr useconds_t kPause_us = 20000;

constinit bool limited = false;
constinit timespec deadline = {};

[[nodiscard]] bool is_over() {
  timespec now = {};
  (void)::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec > deadline.tv_sec ||
         (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

// False with errno, EWOULDBLOCK when the time is over.
[[nodiscard]] bool wait_for(FlockFile& lock) {
  if (!limited) return lock.lock_over_signals();
  while (!lock.lock_at_once()) {
    if (errno != EWOULDBLOCK || is_over()) return false;
    (void)::usleep(kPause_us);
  }
  return true;
}

}  // namespace

void set_lock_timeout(int seconds) {
  (void)::clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += seconds;
  limited = true;
}

int take_lock(FlockFile& lock, const char* path, mode_t mode) {
  if (lock.open(path, mode) && wait_for(lock)) return kDone;
  if (errno == EWOULDBLOCK) return fail(kLockTimeout, "%s: another holds the lock", path);
  return fail(kSystemError, "%s: %s", path, strerror(errno));
}

}  // namespace kt::tools
