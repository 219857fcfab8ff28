#include <fcntl.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/unique_fd.h"
#include "ktcomm/util_process.h"
#include "util/small_file.h"

namespace {

constexpr size_t kViewerDigits = 2;

}  // namespace

int kt_get_viewer_num(int* number) {
  const int viewers = kt::decimal_in_file(kt::paths::kViewers, kViewerDigits).value_or(0);
  if (number != nullptr) *number = viewers;
  return viewers;
}

unsigned long kt_get_sys_free_mem(void) {
  struct sysinfo info = {};
  return sysinfo(&info) == 0 ? info.freeram : 0;
}

unsigned kt_linear_time(unsigned* seconds) {
  struct timespec now = {};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);  // the clock is always there
  const unsigned uptime_s = static_cast<unsigned>(now.tv_sec);
  if (seconds != nullptr) *seconds = uptime_s;
  return uptime_s;
}

int kt_fsync_byname(const char* path) {
  if (path == nullptr) return -1;
  kt::unique_fd fd = kt::open_fd(path, O_RDONLY);
  if (!fd.ok() || fsync(fd.get()) != 0) return -1;
  (void)fd.release();  // stays open after success: one that is lost, as callers know it
  return 0;
}
