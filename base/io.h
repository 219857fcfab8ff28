// io.h - whole reads and writes, over interruptions and short transfers.
#ifndef KTCOMM_BASE_IO_H
#define KTCOMM_BASE_IO_H

#include <errno.h>
#include <stddef.h>
#include <sys/types.h>

namespace kt {

// Calls `call` again while it fails with EINTR; small C libraries lack
// TEMP_FAILURE_RETRY.
template <typename F>
auto retry_eintr(F call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

// Reads until `size` bytes, the end of the file or an error. Returns the count
// read, which is below `size` at the end of the file; -1 with errno on error.
[[nodiscard]] ssize_t read_fully(int fd, void* data, size_t size);

// Writes all `size` bytes; false with errno when that fails.
[[nodiscard]] bool write_fully(int fd, const void* data, size_t size);

// Writes until `size` bytes or an error, which is in errno when the count
// returned is below `size`.
[[nodiscard]] size_t write_counted(int fd, const void* data, size_t size);

// The same at `offset`, wherever the position is and leaving it there; true when
// all `size` bytes were moved.
[[nodiscard]] bool pread_fully(int fd, void* data, size_t size, off_t offset);
[[nodiscard]] bool pwrite_fully(int fd, const void* data, size_t size, off_t offset);

}  // namespace kt

#endif
