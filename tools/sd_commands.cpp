// sd_commands.cpp - the SD card: how it is, mount, unmount, format.
#include <errno.h>
#include <fcntl.h>
#include <ktcomm/sdcard.h>
#include <ktcomm/util_process.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"
#include "tools/card_holders.h"
#include "tools/ktctl.h"
#include "tools/settings_lock.h"

namespace kt::tools {
namespace {

bool is_there(const char* path) {
  return ::access(path, F_OK) == 0;
}

int no_card() {
  return fail(kNotFound, "%s: no card", paths::kCard);
}

// ---- Looking --------------------------------------------------------------

// "1.9 GiB"
StringBuffer<31> size_text(unsigned long long bytes) {
  constexpr const char* kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  size_t unit = 0;
  unsigned long long rest = 0;
  while (bytes >= 1024) {
    rest = bytes % 1024;
    bytes /= 1024;
    ++unit;
  }
  StringBuffer<31> text;
  if (unit == 0) {
    text.append_format("%llu %s", bytes, kUnits[unit]);
  } else {
    text.append_format("%llu.%llu %s", bytes, rest * 10 / 1024, kUnits[unit]);
  }
  return text;
}

const char* describe_state(int state) {
  switch (state) {
    case KT_SD_NO_CARD:
      return "no card";
    case KT_SD_FORMATTING:
      return "being formatted";
    case KT_SD_NOT_MOUNTED:
      return "not mounted";
    case KT_SD_READ_ONLY:
      return "mounted, read-only";
    case KT_SD_READY:
      return "mounted, ready to be written";
    default:
      return "unknown";
  }
}

void print_use(const SdCardStatus& status) {
  constexpr int kCells = 10;
  constexpr char kFull[] = "##########";
  constexpr char kEmpty[] = "..........";
  const int full = (status.used_percent * kCells + 50) / 100;
  (void)printf("use         [%.*s%.*s] %d%% of %s used, %s free\n", full, kFull, kCells - full,
               kEmpty, status.used_percent, size_text(status.total_bytes).c_str(),
               size_text(status.free_bytes).c_str());
}

void print_card_size() {
  const unsigned long long size = mmcsd_get_real_total_size();
  if (size == 0) {
    (void)printf("card        of unknown size\n");
  } else {
    (void)printf("card        %s, %llu bytes\n", size_text(size).c_str(), size);
  }
}

void print_directory() {
  char directory[KT_SD_REC_DIR_SIZE];
  if (mmcsd_get_rec_dir(directory) == nullptr) {
    (void)printf("recordings  unknown: the camera's MAC address cannot be read\n");
  } else {
    (void)printf("recordings  %s%s\n", directory, is_there(directory) ? "" : ", not there");
  }
}

// Whether somebody has his turn at the card.
bool is_operated_on() {
  const unique_fd queue = open_fd(paths::kCardQueue, O_RDONLY);
  if (!queue.ok()) return errno != ENOENT;
  if (::flock(queue.get(), LOCK_SH | LOCK_NB) != 0) return true;
  (void)::flock(queue.get(), LOCK_UN);
  return false;
}

void print_operation() {
  const bool formats = is_there(paths::kCardFormatLock);
  const char* const mark = formats                               ? paths::kCardFormatLock
                           : is_there(paths::kCardOperationLock) ? paths::kCardOperationLock
                                                                 : nullptr;
  const bool active = is_operated_on();
  if (mark != nullptr && !active) {
    (void)printf("operation   none, but one that was killed has left %s\n", mark);
    return;
  }
  const char* const what = formats ? "formats" : mark != nullptr ? "unmounts" : "begins or ends";
  (void)printf("operation   %s\n", active ? what : "none");
}

void print_holders() {
  const Holders holders = print_card_holders(stdout, "held by     ");
  if (holders.found == 0) {
    (void)printf("held by     nobody%s\n", holders.unknown != 0 ? " seen" : "");
  }
  if (holders.unknown != 0) {
    (void)printf("            %d processes can be looked into by root only\n", holders.unknown);
  }
}

// ---- Operations -----------------------------------------------------------

// One caller's turn among all that operate on the card.
class CardTurn {
 public:
  CardTurn() : fd_(kt_task_queue_in(paths::kCardQueue)) {
    if (fd_ < 0) (void)fail(kSystemError, "%s: %s", paths::kCardQueue, strerror(errno));
  }
  CardTurn(const CardTurn&) = delete;
  CardTurn& operator=(const CardTurn&) = delete;
  ~CardTurn() { (void)kt_task_queue_out(fd_); }

  [[nodiscard]] bool has_come() const { return fd_ >= 0; }

 private:
  int fd_;  // never 0: main has seen to that
};

// Before signals are kept waiting, so that a person can give up.
[[nodiscard]] bool wait_for_turn() {
  const CardTurn turn;
  return turn.has_come();
}

int operate(int operation, const char* what) {
  if (!wait_for_turn()) return kSystemError;
  const Uninterrupted uninterrupted;
  if (mmcsd_todo(operation) == 0) return kDone;
  (void)fail(kSystemError, "%s: %s", paths::kCard, what);
  (void)print_card_holders(stderr, "  held by  ");
  return kSystemError;
}

}  // namespace

int show_card(const Request&) {
  SdCardStatus status;
  (void)mmcsd_get_sd_info(&status);  // fails for a null record only
  (void)printf("state       %s\n", describe_state(status.state));
  if (status.state == KT_SD_NO_CARD) return kNotFound;
  if (status.state == KT_SD_READ_ONLY || status.state == KT_SD_READY) print_use(status);
  print_card_size();
  print_directory();
  (void)printf("recorder    %s\n",
               is_there(paths::kCardRecordingLock) ? "records" : "does not record");
  print_operation();
  print_holders();
  return kDone;
}

int mount_card(const Request&) {
  if (!is_there(paths::kCard)) return no_card();
  {
    const CardTurn turn;
    if (!turn.has_come()) return kSystemError;
    if (sd_is_mounted() != 0) return kDone;
    if (mmcsd_sd_u_mount(KT_SD_MOUNT) != 0) {
      return fail(kSystemError, "%s: not mounted: %s", paths::kCard, strerror(errno));
    }
  }
  (void)sd_rec_start();  // tells nothing
  return kDone;
}

int unmount_card(const Request&) {
  if (sd_is_mounted() == 0) return is_there(paths::kCard) ? kDone : no_card();
  return operate(KT_SD_TODO_UNMOUNT, "not unmounted");
}

int format_card(const Request& request) {
  if (!request.has(Option::kYes)) {
    return fail(kUsage, "sd format erases all that is on the card: confirm it with --yes");
  }
  if (!is_there(paths::kCard)) return no_card();
  return operate(KT_SD_TODO_FORMAT, "not formatted, or not mounted again");
}

}  // namespace kt::tools
