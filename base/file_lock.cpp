#include "base/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "base/io.h"

namespace kt {
namespace {

bool set_record_lock(int fd, int command, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;  // start 0, length 0: the whole file
  return ::fcntl(fd, command, &lock) != -1;
}

}  // namespace

bool FlockFile::open(const char* path, mode_t mode) {
  release();
  fd_ = open_fd(path, O_RDWR | O_CREAT, mode);
  return fd_.ok();
}

bool FlockFile::lock() {
  locked_ = ::flock(fd_.get(), LOCK_EX) == 0;
  return locked_;
}

bool FlockFile::lock_over_signals() {
  while (!lock()) {
    if (errno != EINTR) return false;
  }
  return true;
}

bool FlockFile::lock_at_once() {
  locked_ = ::flock(fd_.get(), LOCK_EX | LOCK_NB) == 0;
  return locked_;
}

bool FlockFile::unlock() {
  locked_ = false;
  return ::flock(fd_.get(), LOCK_UN) == 0;
}

void FlockFile::release() {
  if (locked_) (void)unlock();  // the close that follows would unlock too
  fd_.reset();
}

bool lock_record_waiting(int fd) {
  return retry_eintr([=] { return set_record_lock(fd, F_SETLKW, F_WRLCK) ? 0 : -1; }) == 0;
}

bool lock_record_at_once(int fd) {
  return set_record_lock(fd, F_SETLK, F_WRLCK);
}

bool unlock_record(int fd) {
  return set_record_lock(fd, F_SETLK, F_UNLCK);
}

}  // namespace kt
