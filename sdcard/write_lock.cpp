#include <fcntl.h>
#include <unistd.h>

#include "base/file_lock.h"
#include "base/paths.h"
#include "base/unique_fd.h"
#include "ktcomm/sdcard.h"
#include "sdcard/events.h"

using namespace kt;

int fdatasync_sdcard(int fd) {
  if (fd < 0) {
    (void)KT_DEBUGn_in(kTraceFailure, kTraceModule, 0, "%s(%d): invalid fd!\n", __func__, __LINE__);
    return -1;
  }
  const unique_fd lock = open_fd(paths::kCardWriteLock, O_RDWR | O_CREAT, 0700);
  // Descriptor 0 is what a program without standard input gets; it counts as
  // none.
  if (lock.get() < 1) {
    (void)KT_DEBUGn_in(kTraceFailure, kTraceModule, 0,
                       "%s(%d):open sdcard writing lock file error!\n", __func__, __LINE__);
    return -1;
  }
  if (!lock_record_waiting(lock.get())) {
    (void)KT_DEBUGn_in(kTraceFailure, kTraceModule, 0,
                       "%s(%d):Failed to lock sdcard writing file\n", __func__, __LINE__);
    return -1;
  }
  (void)::fdatasync(fd);  // the card's own errors come back with the writes
  if (!unlock_record(lock.get())) {
    (void)KT_DEBUGn_in(kTraceFailure, kTraceModule, 0,
                       "%s(%d):Failed to unlock sdcard writing file\n", __func__, __LINE__);
    return -1;
  }
  return 0;
}
