// sd_commands.cpp - the SD card: how it is, mount, unmount, format.
#include <errno.h>
#include <fcntl.h>
#include <ktcomm/sdcard.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"
#include "tools/card_holders.h"
#include "tools/ktctl.h"
#include "tools/lock_timeout.h"
#include "tools/printer.h"
#include "tools/settings_lock.h"
#include "tools/would_set.h"

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

struct StateText {
  int state;
  const char* word;  // for programs
  const char* text;
};

constexpr StateText kStates[] = {
    {KT_SD_NO_CARD, "no_card", "no card"},
    {KT_SD_FORMATTING, "formatting", "being formatted"},
    {KT_SD_NOT_MOUNTED, "not_mounted", "not mounted"},
    {KT_SD_READ_ONLY, "read_only", "mounted, read-only"},
    {KT_SD_READY, "ready", "mounted, ready to be written"},
};

StateText describe_state(int state) {
  for (const StateText& known : kStates) {
    if (known.state == state) return known;
  }
  return {state, "unknown", "unknown"};
}

bool is_mounted(const SdCardStatus& status) {
  return status.state == KT_SD_READ_ONLY || status.state == KT_SD_READY;
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

struct Operation {
  const char* what = "none";
  const char* left_behind = "";  // the mark of one that was killed
};

Operation find_operation() {
  const bool formats = is_there(paths::kCardFormatLock);
  const char* const mark = formats                               ? paths::kCardFormatLock
                           : is_there(paths::kCardOperationLock) ? paths::kCardOperationLock
                                                                 : nullptr;
  if (!is_operated_on()) return {"none", mark != nullptr ? mark : ""};
  return {formats ? "formats" : mark != nullptr ? "unmounts" : "begins or ends"};
}

void print_operation() {
  const Operation operation = find_operation();
  if (operation.left_behind[0] != '\0') {
    (void)printf("operation   none, but one that was killed has left %s\n", operation.left_behind);
  } else {
    (void)printf("operation   %s\n", operation.what);
  }
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

void print_for_people(const SdCardStatus& status) {
  (void)printf("state       %s\n", describe_state(status.state).text);
  if (status.state == KT_SD_NO_CARD) return;
  if (is_mounted(status)) print_use(status);
  print_card_size();
  print_directory();
  (void)printf("recorder    %s\n",
               is_there(paths::kCardRecordingLock) ? "records" : "does not record");
  print_operation();
  print_holders();
}

void print_holder(const Holder& holder, void* context) {
  auto& printer = *static_cast<Printer*>(context);
  printer.begin_object(nullptr);
  printer.number("pid", holder.pid);
  printer.text("command", holder.command);
  printer.text("path", holder.path);
  printer.end_object();
}

void print_for_programs(const SdCardStatus& status, Printer& printer) {
  printer.text("state", describe_state(status.state).word);
  if (status.state == KT_SD_NO_CARD) return;
  if (is_mounted(status)) {
    printer.number("total_bytes", static_cast<long long>(status.total_bytes));
    printer.number("used_bytes", static_cast<long long>(status.used_bytes));
    printer.number("free_bytes", static_cast<long long>(status.free_bytes));
    printer.number("used_percent", status.used_percent);
  }
  printer.number("card_bytes", static_cast<long long>(mmcsd_get_real_total_size()));
  char directory[KT_SD_REC_DIR_SIZE] = "";
  (void)mmcsd_get_rec_dir(directory);  // stays empty where the MAC address cannot be read
  printer.text("recordings", directory);
  printer.flag("recordings_there", is_there(directory));
  printer.flag("recorder", is_there(paths::kCardRecordingLock));
  const Operation operation = find_operation();
  printer.text("operation", operation.what);
  printer.text("left_behind", operation.left_behind);
  printer.begin_list("held_by");
  const Holders holders = find_card_holders(print_holder, &printer);
  printer.end_list();
  printer.number("not_looked_into", holders.unknown);
}

// ---- Operations -----------------------------------------------------------

// Waits for the turn among all that operate on the card.
[[nodiscard]] int wait_for_turn(FlockFile& turn) {
  constexpr mode_t kMode = 0700;
  return take_lock(turn, paths::kCardQueue, kMode);
}

int operate(const Request& request, int operation, const char* plan, const char* what) {
  {
    // Before signals are kept waiting, so that a person can give up.
    FlockFile turn;
    if (const int code = wait_for_turn(turn); code != kDone) return code;
  }
  if (request.dry_run()) return would("pause the recorder and %s %s", plan, paths::kCard);
  const Uninterrupted uninterrupted;
  if (mmcsd_todo(operation) == 0) return kDone;
  (void)fail(kSystemError, "%s: %s", paths::kCard, what);
  (void)print_card_holders(stderr, "  held by  ");
  return kSystemError;
}

}  // namespace

int show_card(const Request& request) {
  SdCardStatus status;
  (void)mmcsd_get_sd_info(&status);  // fails for a null record only
  Printer printer(request);
  if (printer.plain()) {
    print_for_people(status);
  } else {
    print_for_programs(status, printer);
  }
  return status.state == KT_SD_NO_CARD ? kNotFound : kDone;
}

int mount_card(const Request& request) {
  if (!is_there(paths::kCard)) return no_card();
  {
    FlockFile turn;
    if (const int code = wait_for_turn(turn); code != kDone) return code;
    if (sd_is_mounted() != 0) return request.dry_run() ? would_change_nothing() : kDone;
    if (request.dry_run()) {
      return would("mount %s and let the recorder record",
                   is_there(paths::kCardPartition) ? paths::kCardPartition : paths::kCard);
    }
    if (mmcsd_sd_u_mount(KT_SD_MOUNT) != 0) {
      return fail(kSystemError, "%s: not mounted: %s", paths::kCard, strerror(errno));
    }
  }
  (void)sd_rec_start();  // tells nothing
  return kDone;
}

int unmount_card(const Request& request) {
  if (sd_is_mounted() != 0) return operate(request, KT_SD_TODO_UNMOUNT, "unmount", "not unmounted");
  if (!is_there(paths::kCard)) return no_card();
  return request.dry_run() ? would_change_nothing() : kDone;
}

int format_card(const Request& request) {
  if (!request.has(Option::kYes)) {
    return fail(kUsage, "sd format erases all that is on the card: confirm it with --yes");
  }
  if (!is_there(paths::kCard)) return no_card();
  return operate(request, KT_SD_TODO_FORMAT, "format", "not formatted, or not mounted again");
}

}  // namespace kt::tools
