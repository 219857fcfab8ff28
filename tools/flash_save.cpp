// flash_save.cpp - settings, or the factory defaults, to both copies in flash.
#include <errno.h>
#include <ktcomm/flash.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "base/paths.h"
#include "base/unique_file.h"
#include "tools/flash_copies.h"
#include "tools/flash_partition.h"
#include "tools/flash_stages.h"
#include "tools/flash_trial.h"
#include "tools/ktctl.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"

namespace kt::tools {
namespace {

// Says where the byte is that makes a settings file unfit to be stored.
int refuse_bad_byte(const char* path, FILE* file) {
  int line = 1;
  int place = 0;
  int c;
  while ((c = getc_unlocked(file)) != EOF && c != '\0') {
    ++place;
    if (c == '\n') {
      ++line;
      place = 0;
    } else if (c != '\r' && (c < ' ' || c > '~')) {
      return fail(kRefused, "%s:%d: byte 0x%02x at place %d: such settings are not stored", path,
                  line, static_cast<unsigned>(c), place);
    }
  }
  return fail(kRefused, "%s: not valid: such settings are not stored", path);
}

// Whether the file can be stored. Asked beforehand, since a save that meets one
// that cannot puts the stored settings in the place of the camera's. The
// library's check comes last: it prints when the file cannot be opened.
int check_savable(const char* path) {
  unique_file file;
  const int unfit = open_settings(path, file);
  if (unfit != kDone) return unfit;
  return calc_conf_line_num_and_check_ascii(path) >= 0 ? kDone : refuse_bad_byte(path, file.get());
}

const char* explain_save_result(int result) {
  switch (result) {
    case -1:
      return "not saved: the settings lock could not be had, or the settings could not be put in "
             "place or read; in the latter case those in flash were brought back";
    case -2:
      return "not saved: the normal copy could not be written, or the settings do not fit; the "
             "backup copy may hold them";
    case -3:
      return "not saved: the settings could not be packed in /mnt/ramdisk; is it full?";
    case -4:
      return "not saved: the digest of the packed settings could not be computed";
    default:
      return "not saved";
  }
}

// The library's result is about the normal copy alone.
int check_both_copies() {
  SettingsLock lock;
  if (const int code = lock.wait(); code != kDone) return code;
  if (are_equal(inspect_copy(kNormalIndex), inspect_copy(kBackupIndex))) return kDone;
  return fail(kSystemError,
              "%s: saved in the normal copy, but the backup copy could not be written: a power "
              "cut in the next save may lose the settings",
              paths::kBackupCopy);
}

// A file of another place needs the settings' directory to be copied to.
void make_settings_directory() {
  (void)::mkdir(paths::kSettingsDirectory, 0777);  // mostly it is there
}

// Tells what a save would write over what, or why it could not.
int would_save(const char* path) {
  const long long length = packed_size(path);
  if (length < 0) return fail(kSystemError, "%s: could not be packed for a trial in /tmp", path);
  for (const int copy : {kBackupIndex, kNormalIndex}) {
    const FlashPartition partition(kPartitions[copy]);
    if (partition.kind() == FlashPartition::Kind::kMissing) {
      return fail(kSystemError, "%s: %s", kPartitions[copy], strerror(errno));
    }
    if (!has_room(partition, length)) {
      return fail(kSystemError, "%s: %lld bytes of packed settings do not fit in %lld",
                  kPartitions[copy], length, partition.size());
    }
  }
  if (strcmp(path, paths::kSettings) != 0) (void)would("copy %s to %s", path, paths::kSettings);
  for (const int copy : {kBackupIndex, kNormalIndex}) {
    constexpr const char* kHeld[] = {"unknown", "no", "other", "the same"};  // by Content
    const Content content = look_into(copy, inspect_copy(copy), path);
    (void)would("write %lld bytes to the %s, %s, which holds %s settings", length, kCopyNames[copy],
                kPartitions[copy], kHeld[static_cast<int>(content)]);
  }
  return kDone;
}

int save_with(int (*save)(const char*), const Request& request, const char* path) {
  SaveStages stages;
  if (!request.dry_run()) stages.show("checking");
  const int unfit = check_savable(path);
  if (unfit != kDone) return unfit;
  if (request.dry_run()) return would_save(path);
  if (const int code = wait_until_unlocked(); code != kDone) return code;
  int result;
  {
    const Uninterrupted uninterrupted;
    stages.show("packing");
    stages.watch();
    make_settings_directory();
    result = save(path);
  }
  stages.end_watch(result == 0);
  if (result != 0) return fail(kSystemError, "%s: %s", path, explain_save_result(result));
  stages.show("verifying");
  return check_both_copies();
}

}  // namespace

int save_settings(const Request& request) {
  if (!check_path(request.file)) return kRefused;
  return save_with(fl_write_conf, request, request.file);
}

int reset_settings(const Request& request) {
  return save_with(fl_reset_write_conf, request, paths::kDefaultSettings);
}

}  // namespace kt::tools
