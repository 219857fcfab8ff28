// lock_timeout.h - locks that are not waited for longer than --lock-timeout says.
#ifndef KTCOMM_TOOLS_LOCK_TIMEOUT_H
#define KTCOMM_TOOLS_LOCK_TIMEOUT_H

#include <sys/types.h>

#include "base/file_lock.h"

namespace kt::tools {

inline constexpr int kLongestLockTimeout = 86400;

// From the first wait on, over all locks by flock(2) together, those that the library
// takes included; without it they are waited for as long as it takes.
void set_lock_timeout(int seconds);

// Opens the lock file at `path` and takes the lock. Returns kDone, or the exit code
// after it has said why not: kLockTimeout or kSystemError.
[[nodiscard]] int take_lock(FlockFile& lock, const char* path, mode_t mode);

}  // namespace kt::tools

#endif
