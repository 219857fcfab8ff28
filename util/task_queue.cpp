#include <fcntl.h>
#include <sys/file.h>

#include "base/unique_fd.h"
#include "ktcomm/util_process.h"

int kt_task_queue_in(const char* path) {
  if (path == nullptr) return -1;
  kt::unique_fd fd = kt::open_fd(path, O_RDWR | O_CREAT, 0700);
  if (!fd.ok()) return -1;
  if (flock(fd.get(), LOCK_EX) == 0) return fd.release();
  // Descriptor 0 counts as none, here as in kt_task_queue_out: it stays open.
  if (fd.get() == 0) (void)fd.release();
  return -1;
}

int kt_task_queue_out(int fd) {
  if (fd < 1) return 0;
  const kt::unique_fd queue(fd);
  return flock(queue.get(), LOCK_UN);
}
