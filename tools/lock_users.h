// lock_users.h - which processes hold a lock by flock(2), and which wait for it.
#ifndef KTCOMM_TOOLS_LOCK_USERS_H
#define KTCOMM_TOOLS_LOCK_USERS_H

#include <sys/types.h>

#include "base/string_buffer.h"
#include "base/unique_file.h"

namespace kt::tools {

struct LockUser {
  pid_t pid = 0;
  bool waits = false;  // else it holds the lock
};

// The processes that /proc/locks names for the file that is open as `fd`. It names
// none whose process IDs are not known here, and none where there is no /proc.
class LockUsers {
 public:
  explicit LockUsers(int fd);

  [[nodiscard]] bool next(LockUser& user);

 private:
  unique_file table_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

using ShortText = StringBuffer<255>;

// A process's command line, or its name where the line is not told, without control
// characters; "" for one that has ended.
[[nodiscard]] ShortText command_of(pid_t pid);

// "held by process 123 (hydra)", of the lock on the file that is open as `fd` and
// that another has.
[[nodiscard]] ShortText describe_holder(int fd);

}  // namespace kt::tools

#endif
