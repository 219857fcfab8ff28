// flash_commands.cpp - settings to flash and back, and what is in flash.
#include <fcntl.h>
#include <inttypes.h>
#include <ktcomm/flash.h>
#include <ktcomm/util_hash.h>
#include <mtd/mtd-user.h>
#include <stdio.h>
#include <sys/stat.h>

#include "base/paths.h"
#include "base/unique_file.h"
#include "tools/flash_copies.h"
#include "tools/ktctl.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"

namespace kt::tools {
namespace {

constexpr const char* kCopyNames[] = {"normal copy", "backup copy"};

// ---- Saving ---------------------------------------------------------------

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

int save_with(int (*save)(const char*), const char* path) {
  const int unfit = check_savable(path);
  if (unfit != kDone) return unfit;
  if (const int code = wait_until_unlocked(); code != kDone) return code;
  const Uninterrupted uninterrupted;
  make_settings_directory();
  const int result = save(path);
  if (result != 0) return fail(kSystemError, "%s: %s", path, explain_save_result(result));
  return check_both_copies();
}

// ---- Restoring ------------------------------------------------------------

const char* describe(const CopyState& state) {
  if (!state.reachable) return "cannot be read";
  return state.intact ? "intact" : "broken";
}

void print_repair(const Repair& repair, int copy) {
  const CopyState& state = repair.found[copy];
  (void)printf("%s: %s", kCopyNames[copy], describe(state));
  if (repair.source != kNeither && copy != repair.source) {
    if (state.intact) (void)printf(", with other settings");
    (void)printf(repair.result == RepairResult::kRepaired ? "; repaired from the %s"
                                                          : "; could not be repaired from the %s",
                 kCopyNames[repair.source]);
  } else if (repair.result == RepairResult::kNoSource) {
    (void)printf(state.intact ? ", but holds no settings" : "; nothing to repair it from");
  }
  (void)printf("\n");
}

int report_repair(const Repair& repair) {
  if (repair.result == RepairResult::kNotLocked) {
    return fail(kSystemError, "%s: lost: the copies in flash were not looked at",
                paths::kSettingsLock);
  }
  print_repair(repair, kNormalIndex);
  print_repair(repair, kBackupIndex);
  if (repair.result != RepairResult::kNotRepaired) return kDone;
  const int target = repair.source == kNormalIndex ? kBackupIndex : kNormalIndex;
  return fail(kSystemError, "%s: the settings are restored, but the %s could not be repaired",
              kPartitions[target], kCopyNames[target]);
}

// ---- Looking --------------------------------------------------------------

void print_bad_blocks(int fd, const mtd_info_user& info) {
  unsigned bad = 0;
  (void)printf("  bad blocks  ");
  for (uint32_t offset = 0; info.erasesize != 0 && offset < info.size;) {
    if (is_a_bad_block(fd, offset) == 1) {
      (void)printf("%s0x%08" PRIx32, bad == 0 ? "" : " ", offset);
      ++bad;
    }
    if (info.size - offset <= info.erasesize) break;
    offset += info.erasesize;
  }
  (void)printf("%s\n", bad == 0 ? "none" : "");
}

void print_device(const char* partition) {
  constexpr unsigned kNoAnswer = static_cast<unsigned>(-2);
  const int fd = flash_open(partition, O_RDONLY);
  if (fd <= 0) {
    (void)printf("  device      cannot be opened\n");
    return;
  }
  if (kt_flash_get_logical_size(fd) == kNoAnswer) {
    (void)printf("  device      plain file, %lld bytes\n", flash_lseek(fd, 0, SEEK_END));
  } else {
    mtd_info_user info = {};
    const bool known = kt_flash_get_mtdinfo(fd, &info) == 0;
    (void)printf("  device      MTD, %" PRIu32 " bytes, erase block %" PRIu32 ", page %" PRIu32
                 ", spare %" PRIu32 "%s\n",
                 info.size, info.erasesize, info.writesize, info.oobsize,
                 known ? "" : ", of no kind known to the library");
    print_bad_blocks(fd, info);
  }
  (void)flash_close(fd);  // nothing was written
}

void print_copy(int copy, const CopyState& state) {
  (void)printf("%s, %s\n", kCopyNames[copy], kPartitions[copy]);
  print_device(kPartitions[copy]);
  if (!state.reachable) {
    (void)printf("  state       cannot be read\n");
    return;
  }
  char digest[33];
  (void)md5_value_to_str(digest, sizeof digest, state.header.md5);  // the size is right
  const char* const verdict = !state.length_right ? "not checked"
                              : state.md5_right   ? "right"
                                                  : "wrong";
  (void)printf("  id          0x%04X, %s\n", state.header.id,
               state.header.id == kCopyId ? "right" : "wrong");
  (void)printf("  length      %u bytes%s\n", state.header.length,
               state.length_right ? "" : ", wrong");
  (void)printf("  MD5         %s, %s\n", digest, verdict);
  (void)printf("  state       %s\n", describe(state));
}

void print_choice(const BootChoice& choice) {
  if (choice.copy == kNeither) {
    (void)printf("a boot takes the factory defaults\n");
  } else if (choice.other_version) {
    (void)printf("a boot takes the factory defaults: the %s is of another version\n",
                 kCopyNames[choice.copy]);
  } else {
    (void)printf("a boot takes the %s\n", kCopyNames[choice.copy]);
  }
}

}  // namespace

int save_settings(const Request& request) {
  if (!check_path(request.file)) return kRefused;
  return save_with(fl_write_conf, request.file);
}

int reset_settings(const Request&) {
  return save_with(fl_reset_write_conf, paths::kDefaultSettings);
}

int restore_settings(const Request&) {
  // A boot needs its settings even where there is no lock to be had.
  const int unlockable = wait_until_unlocked();
  const Uninterrupted uninterrupted;
  if (fl_read_conf(paths::kSettings) != 0) {
    return fail(kSystemError,
                "%s: not restored: no settings in flash that serve, and the factory defaults "
                "of %s could not be put in place",
                paths::kSettings, paths::kDefaultSettings);
  }
  return unlockable == kDone ? report_repair(repair_copies()) : unlockable;
}

int show_flash(const Request&) {
  const CopyState copies[2] = {inspect_copy(kNormalIndex), inspect_copy(kBackupIndex)};
  print_copy(kNormalIndex, copies[kNormalIndex]);
  print_copy(kBackupIndex, copies[kBackupIndex]);
  print_choice(choose_as_boot(copies));
  const bool equal = are_equal(copies[kNormalIndex], copies[kBackupIndex]);
  (void)printf("the copies %s\n", equal ? "are equal" : "differ");
  return equal ? kDone : kNotFound;
}

}  // namespace kt::tools
