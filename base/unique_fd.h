// unique_fd.h - a file descriptor that closes itself.
#ifndef KTCOMM_BASE_UNIQUE_FD_H
#define KTCOMM_BASE_UNIQUE_FD_H

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace kt {

class unique_fd {
 public:
  unique_fd() = default;
  explicit unique_fd(int fd) : fd_(fd) {}
  unique_fd(unique_fd&& other) noexcept : fd_(other.release()) {}
  unique_fd& operator=(unique_fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  unique_fd(const unique_fd&) = delete;
  unique_fd& operator=(const unique_fd&) = delete;
  ~unique_fd() { reset(); }

  [[nodiscard]] bool ok() const { return fd_ >= 0; }
  [[nodiscard]] int get() const { return fd_; }

  // Gives the descriptor away; the caller closes it or leaves it open.
  [[nodiscard]] int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

  // Closes what is held and takes `fd`; errno is kept.
  void reset(int fd = -1) {
    if (ok()) {
      const int saved = errno;
      (void)::close(fd_);
      errno = saved;
    }
    fd_ = fd;
  }

  // Closes now and tells how that went: 0, or -1 with errno. It is never tried
  // again: after a failed close, EINTR included, the descriptor is gone.
  [[nodiscard]] int close() { return ::close(release()); }

  bool operator!() const = delete;

 private:
  int fd_ = -1;
};

// open(2) with close-on-exec, which every descriptor of the library has: one
// that leaked into a shell command would keep its lock or port after us.
[[nodiscard]] inline unique_fd open_fd(const char* path, int flags, mode_t mode = 0) {
  return unique_fd(::open(path, flags | O_CLOEXEC, mode));
}

}  // namespace kt

#endif
