#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/shell.h"
#include "base/unique_fd.h"
#include "ktcomm/sdcard.h"
#include "ktcomm/util_process.h"
#include "sdcard/events.h"

namespace kt {
namespace {

// This caller's turn in the queue of card operations.
class CardTurn {
 public:
  CardTurn() : fd_(kt_task_queue_in(paths::kCardQueue)) {}
  CardTurn(const CardTurn&) = delete;
  CardTurn& operator=(const CardTurn&) = delete;
  ~CardTurn() {
    // The queue takes descriptor 0 for none and would leave it open and locked.
    if (fd_ == 0) {
      const unique_fd queue(fd_);
      (void)::flock(queue.get(), LOCK_UN);
    } else {
      (void)kt_task_queue_out(fd_);
    }
  }

  [[nodiscard]] bool has_come() const { return fd_ >= 0; }

 private:
  int fd_;
};

// A file that tells other programs of an operation as long as the object lives.
class OperationMark {
 public:
  explicit OperationMark(const char* path)
      : path_(path), made_(open_fd(path, O_RDWR | O_CREAT, 0666).ok()) {}
  OperationMark(const OperationMark&) = delete;
  OperationMark& operator=(const OperationMark&) = delete;
  ~OperationMark() {
    if (made_) (void)::unlink(path_);
  }

  [[nodiscard]] bool made() const { return made_; }

 private:
  const char* path_;
  bool made_;
};

void wait_for_writers() {
  (void)mmcsd_wait_trigger_stop();
  ::sync();
}

[[nodiscard]] int unmount_card() {
  const OperationMark operation(paths::kCardOperationLock);
  if (!operation.made()) return -1;
  wait_for_writers();
  const int result = mmcsd_sd_u_mount(KT_SD_UNMOUNT);
  if (result != 0) log_card_event(kUnmountFailed);
  log_card_event(kUnmounted);  // also when it failed
  return result;
}

[[nodiscard]] int format_card() {
  const OperationMark operation(paths::kCardOperationLock);
  if (!operation.made()) return -1;
  const OperationMark format(paths::kCardFormatLock);
  if (!format.made()) return -1;
  wait_for_writers();
  (void)mmcsd_sd_u_mount(KT_SD_UNMOUNT);  // a card that was not mounted is formatted too
  if (!run_shell("/sbin/mkfs.vfat %s >/dev/null 2>/dev/null", paths::kCard)) {
    (void)mmcsd_sd_u_mount(KT_SD_MOUNT);
    log_card_event(kFormatFailed);
    return -1;
  }
  // The card is one file system now, without a partition table.
  (void)::unlink(paths::kCardPartition);
  const int result = mmcsd_sd_u_mount(KT_SD_MOUNT);
  log_card_event(result == 0 ? kFormatted : kFormatFailed);
  return result;
}

[[nodiscard]] int run_operation(int operation) {
  switch (operation) {
    case KT_SD_TODO_FORMAT:
      return format_card();
    case KT_SD_TODO_UNMOUNT:
      return unmount_card();
    default:
      return -1;
  }
}

}  // namespace
}  // namespace kt

using namespace kt;

int mmcsd_todo(int operation) {
  // Who reads the trace knows this place by its number: it stays as it is
  // wherever the code moves.
  constexpr int kStopFailedLine = 945;

  const CardTurn turn;
  if (!turn.has_come()) return -1;
  if (::access(paths::kCardRecordingLock, F_OK) == 0) {
    if (sd_rec_stop(0) != 0) {
      (void)KT_DEBUGn_in(kTraceFailure, kTraceModule, 0,
                         "%s(%d): Failed to stop sd recording ...\n", __func__, kStopFailedLine);
    } else if (operation == KT_SD_TODO_FORMAT || operation == KT_SD_TODO_UNMOUNT) {
      log_record_event(kStoppedForOperation);
    }
  }
  const int result = run_operation(operation);
  (void)sd_rec_start();
  return result;
}
