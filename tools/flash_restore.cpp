// flash_restore.cpp - settings from flash, and copies put in order.
#include <ktcomm/flash.h>
#include <stdio.h>
#include <unistd.h>

#include "base/paths.h"
#include "tools/flash_copies.h"
#include "tools/ktctl.h"
#include "tools/settings_lock.h"

namespace kt::tools {
namespace {

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

void print_repair(const Repair& repair) {
  print_repair(repair, kNormalIndex);
  print_repair(repair, kBackupIndex);
}

int fail_not_locked() {
  return fail(kSystemError, "%s: lost: the copies in flash were not looked at",
              paths::kSettingsLock);
}

int fail_not_unpacked() {
  return fail(kSystemError, "%s", kNotUnpackedReason);
}

int report_repair_of_restore(const Repair& repair) {
  if (repair.result == RepairResult::kNotLocked) return fail_not_locked();
  print_repair(repair);
  if (repair.result == RepairResult::kNotUnpacked) return fail_not_unpacked();
  if (repair.result != RepairResult::kNotRepaired) return kDone;
  return fail(kSystemError, "%s: the settings are restored, but the %s could not be repaired",
              kPartitions[repair.target()], kCopyNames[repair.target()]);
}

int would_repair() {
  const Repair repair = find_repair();
  if (repair.result == RepairResult::kNotUnpacked) return fail_not_unpacked();
  if (repair.result != RepairResult::kNeeded) {
    print_repair(repair);
    return repair.result == RepairResult::kNotNeeded ? kDone : kNotFound;
  }
  return would("write %u bytes from the %s, %s, to the %s, %s",
               repair.found[repair.source].header.length, kCopyNames[repair.source],
               kPartitions[repair.source], kCopyNames[repair.target()],
               kPartitions[repair.target()]);
}

// What a boot does first, then the repair.
int would_restore() {
  const bool valid = ::access(paths::kSettings, R_OK) == 0 &&
                     calc_conf_line_num_and_check_ascii(paths::kSettings) >= 0;
  const CopyState copies[2] = {inspect_copy(kNormalIndex), inspect_copy(kBackupIndex)};
  const BootChoice choice = choose_as_boot(copies);
  if (!choice.known) return fail_not_unpacked();
  const bool outdated = valid ? is_other_version(paths::kSettings) : choice.other_version;
  if (outdated || (!valid && choice.copy == kNeither)) {
    (void)would("copy %s to %s", paths::kDefaultSettings, paths::kSettings);
  } else if (valid) {
    (void)would("keep %s", paths::kSettings);
  } else {
    (void)would("unpack the %s, %s, to %s", kCopyNames[choice.copy], kPartitions[choice.copy],
                paths::kSettingsDirectory);
  }
  (void)would_repair();  // a restore is done without, too
  return kDone;
}

}  // namespace

int restore_settings(const Request& request) {
  if (request.dry_run()) return would_restore();
  // A boot needs its settings even where there is no lock to be had.
  const int unlockable = wait_until_unlocked();
  const Uninterrupted uninterrupted;
  if (fl_read_conf(paths::kSettings) != 0) {
    return fail(kSystemError,
                "%s: not restored: no settings in flash that serve, and the factory defaults "
                "of %s could not be put in place",
                paths::kSettings, paths::kDefaultSettings);
  }
  return unlockable == kDone ? report_repair_of_restore(repair_copies()) : unlockable;
}

int repair_flash(const Request& request) {
  if (request.dry_run()) return would_repair();
  if (const int code = wait_until_unlocked(); code != kDone) return code;
  const Uninterrupted uninterrupted;
  const Repair repair = repair_copies();
  if (repair.result == RepairResult::kNotLocked) return fail_not_locked();
  print_repair(repair);
  if (repair.result == RepairResult::kNotUnpacked) return fail_not_unpacked();
  if (repair.result == RepairResult::kNoSource) return kNotFound;
  if (repair.result != RepairResult::kNotRepaired) return kDone;
  return fail(kSystemError, "%s: the %s could not be repaired", kPartitions[repair.target()],
              kCopyNames[repair.target()]);
}

}  // namespace kt::tools
