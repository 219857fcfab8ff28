#include <errno.h>
#include <fcntl.h>
#include <ktcomm/flash.h>
#include <unistd.h>

#include "base/file_lock.h"
#include "base/unique_fd.h"
#include "flash/block_writer.h"
#include "flash/trace.h"

namespace {

constexpr int kRefused = -2;    // bad parameters, or locked by another process
constexpr int kReadFailed = 2;  // callers compare the result with their count
constexpr mode_t kMode = 0600;  // with O_CREAT

// Callers take a descriptor of 0 for a failure: it is moved up.
kt::unique_fd open_above_zero(const char* path, int flags) {
  kt::unique_fd fd = kt::open_fd(path, flags, kMode);
  if (fd.get() == 0) fd.reset(::fcntl(0, F_DUPFD_CLOEXEC, 1));
  return fd;
}

}  // namespace

int flash_open(const char* path, int flags) {
  if (path == nullptr) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters\n");
    return kRefused;
  }
  kt::unique_fd fd = open_above_zero(path, flags);
  if (!fd.ok()) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Open file fail\n");
    return fd.get();
  }
  if (flags != 0 && !kt::lock_record_at_once(fd.get())) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Lock file fail\n");
    return kRefused;
  }
  kt::BlockWriter::forget(fd.get());  // of an earlier descriptor with this number
  return fd.release();                // flash_close closes it
}

long long flash_lseek(int fd, long long offset, int whence) {
  // Positions beyond 4 GiB are not supported: the low 32 bits count, as a negative
  // number where the offset is one, so that seeking backwards works.
  const off_t low =
      offset < 0 ? off_t{static_cast<int>(offset)} : off_t{static_cast<unsigned>(offset)};
  return ::lseek(fd, low, whence);
}

int flash_read(int fd, void* buf, unsigned count) {
  if (count == 0) return 0;
  const ssize_t done = ::read(fd, buf, count);
  if (done < 0 || static_cast<size_t>(done) != count) return kReadFailed;
  if (const kt::BlockWriter* const writer = kt::BlockWriter::find(fd)) {
    writer->overlay(::lseek(fd, 0, SEEK_CUR) - done, static_cast<unsigned char*>(buf), count);
  }
  return static_cast<int>(count);
}

int flash_close(int fd) {
  if (fd < 0) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters\n");
    return kRefused;
  }
  const bool kept = kt::BlockWriter::flush_of(fd);
  const int error = errno;
  if (!kept) KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Written data lost\n");
  kt::BlockWriter::forget(fd);
  ::sync();
  if (!kt::unlock_record(fd)) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Fail unlock the file\n");
    (void)kt::unlock_record(fd);  // the close that follows unlocks as well
  }
  const int closed = kt::unique_fd(fd).close();
  if (!kept) errno = error;
  return kept ? closed : -1;
}
