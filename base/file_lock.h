// file_lock.h - the two kinds of lock that keep processes apart.
#ifndef KTCOMM_BASE_FILE_LOCK_H
#define KTCOMM_BASE_FILE_LOCK_H

#include <sys/types.h>

#include "base/unique_fd.h"

namespace kt {

// An exclusive flock(2) on a file of its own, released explicitly before its
// descriptor is closed, so that a copy of the descriptor in a child process
// does not prolong it.
class FlockFile {
 public:
  FlockFile() = default;
  FlockFile(const FlockFile&) = delete;
  FlockFile& operator=(const FlockFile&) = delete;
  ~FlockFile() { release(); }

  // Opens the lock file read-write, creating it; false with errno.
  [[nodiscard]] bool open(const char* path, mode_t mode);

  // One blocking attempt; false with errno, EINTR when a signal came.
  [[nodiscard]] bool lock();

  // Waits for the lock over any number of signals; false with errno.
  [[nodiscard]] bool lock_over_signals();

  // One attempt that does not wait; false with errno when another holds it.
  [[nodiscard]] bool lock_at_once();

  // Unlocks before the object dies, for those who want to know; false with errno.
  [[nodiscard]] bool unlock();

  // Unlocks and closes; nothing happens when neither was done.
  void release();

  [[nodiscard]] int fd() const { return fd_.get(); }

 private:
  unique_fd fd_;
  bool locked_ = false;
};

// fcntl(2) record locks over a whole file. They belong to the process and the
// file, not to the descriptor: closing any descriptor of the file ends them.
[[nodiscard]] bool lock_record_waiting(int fd);  // false with errno
[[nodiscard]] bool lock_record_at_once(int fd);  // false with errno when another holds it
[[nodiscard]] bool unlock_record(int fd);        // false with errno

}  // namespace kt

#endif
