// unique_file.h - a standard I/O stream that closes itself.
#ifndef KTCOMM_BASE_UNIQUE_FILE_H
#define KTCOMM_BASE_UNIQUE_FILE_H

#include <errno.h>
#include <stdio.h>

#include "base/unique_fd.h"

namespace kt {

class unique_file {
 public:
  unique_file() = default;
  explicit unique_file(FILE* stream) : stream_(stream) {}
  unique_file(unique_file&& other) noexcept : stream_(other.release()) {}
  unique_file& operator=(unique_file&& other) noexcept {
    reset(other.release());
    return *this;
  }
  unique_file(const unique_file&) = delete;
  unique_file& operator=(const unique_file&) = delete;
  ~unique_file() { reset(); }

  [[nodiscard]] bool ok() const { return stream_ != nullptr; }
  [[nodiscard]] FILE* get() const { return stream_; }

  // Gives the stream away; the caller closes it or leaves it open.
  [[nodiscard]] FILE* release() {
    FILE* const stream = stream_;
    stream_ = nullptr;
    return stream;
  }

  // Closes what is held and takes `stream`; errno is kept.
  void reset(FILE* stream = nullptr) {
    if (ok()) {
      const int saved = errno;
      (void)::fclose(stream_);
      errno = saved;
    }
    stream_ = stream;
  }

  // Closes now; false when anything written to the stream, now or earlier, was
  // lost.
  [[nodiscard]] bool close() {
    FILE* const stream = release();
    const bool failed_before = ::ferror(stream) != 0;
    return ::fclose(stream) == 0 && !failed_before;
  }

  bool operator!() const = delete;

 private:
  FILE* stream_ = nullptr;
};

// fopen(3); `mode` carries the 'e' of close-on-exec ("re", "we", "r+e").
[[nodiscard]] inline unique_file open_file(const char* path, const char* mode) {
  return unique_file(::fopen(path, mode));
}

// A stream on `fd`, which it takes over.
[[nodiscard]] inline unique_file open_file(unique_fd fd, const char* mode) {
  unique_file stream(::fdopen(fd.get(), mode));
  if (stream.ok()) (void)fd.release();  // the stream's from now on
  return stream;
}

}  // namespace kt

#endif
