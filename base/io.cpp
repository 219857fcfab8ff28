#include "base/io.h"

#include <unistd.h>

namespace kt {
namespace {

// Calls `move` with the count done so far until `size` bytes are moved. Ends
// early, with errno, when it fails or moves nothing.
template <typename F>
size_t move_all(size_t size, F move) {
  size_t done = 0;
  while (done < size) {
    const ssize_t count = retry_eintr([&] { return move(done); });
    if (count == 0) errno = ENOSPC;
    if (count <= 0) break;
    done += static_cast<size_t>(count);
  }
  return done;
}

}  // namespace

ssize_t read_fully(int fd, void* data, size_t size) {
  char* const bytes = static_cast<char*>(data);
  size_t done = 0;
  while (done < size) {
    const ssize_t count = retry_eintr([&] { return ::read(fd, bytes + done, size - done); });
    if (count < 0) return -1;
    if (count == 0) break;
    done += static_cast<size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

size_t write_counted(int fd, const void* data, size_t size) {
  const char* const bytes = static_cast<const char*>(data);
  return move_all(size, [=](size_t done) { return ::write(fd, bytes + done, size - done); });
}

bool write_fully(int fd, const void* data, size_t size) {
  return write_counted(fd, data, size) == size;
}

bool pread_fully(int fd, void* data, size_t size, off_t offset) {
  char* const bytes = static_cast<char*>(data);
  return move_all(size, [=](size_t done) {
           return ::pread(fd, bytes + done, size - done, offset + static_cast<off_t>(done));
         }) == size;
}

bool pwrite_fully(int fd, const void* data, size_t size, off_t offset) {
  const char* const bytes = static_cast<const char*>(data);
  return move_all(size, [=](size_t done) {
           return ::pwrite(fd, bytes + done, size - done, offset + static_cast<off_t>(done));
         }) == size;
}

}  // namespace kt
