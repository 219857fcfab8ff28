// flash_show.cpp - what is in flash, and whether it would do.
#include <inttypes.h>
#include <ktcomm/util_hash.h>
#include <stdio.h>

#include "base/string_buffer.h"
#include "tools/flash_copies.h"
#include "tools/flash_partition.h"
#include "tools/ktctl.h"
#include "tools/printer.h"
#include "tools/settings_lock.h"

namespace kt::tools {
namespace {

using Kind = FlashPartition::Kind;
using Areas = FlashPartition::Areas;
using Digest = StringBuffer<32>;

constexpr const char* kShortNames[] = {"normal", "backup"};

Digest digest_of(const CopyState& state) {
  char text[33];
  (void)md5_value_to_str(text, sizeof text, state.header.md5);  // the size is right
  Digest digest;
  digest.append(text);
  return digest;
}

// ---- For people -----------------------------------------------------------

void print_device(const FlashPartition& partition) {
  const mtd_info_user& info = partition.geometry();
  if (partition.kind() == Kind::kMissing) {
    (void)printf("  device      cannot be opened\n");
    return;
  }
  if (partition.kind() == Kind::kFile) {
    (void)printf("  device      plain file, %lld bytes\n", partition.size());
    return;
  }
  (void)printf("  device      MTD, %" PRIu32 " bytes, erase block %" PRIu32 ", page %" PRIu32
               ", spare %" PRIu32 "%s\n",
               info.size, info.erasesize, info.writesize, info.oobsize,
               partition.known() ? "" : ", of no kind known to the library");
  (void)printf("  bad blocks  ");
  const char* gap = "";
  for (unsigned offset = 0; partition.find_bad_block(offset); offset += info.erasesize) {
    (void)printf("%s0x%08x", gap, offset);
    gap = " ";
  }
  (void)printf("%s\n", gap[0] == '\0' ? "none" : "");
}

void print_areas(const FlashPartition& partition) {
  if (partition.kind() == Kind::kMissing) return;
  if (partition.area_state() != Areas::kRight) {
    (void)printf("  areas       %s\n", partition.area_state() == Areas::kNone
                                           ? "none"
                                           : "no table, or a damaged one: its MD5 is wrong");
    return;
  }
  (void)printf("  areas       ID  ATTR  OFFSET  RESERVED   USED\n");
  for (const flash_area_entry& area : partition.areas()) {
    (void)printf("              %2d  %4d  %6d  %8d  %5d\n", area.id, area.attr, area.offset,
                 area.reserve_size, area.used_size);
  }
}

void print_copy(int copy, const CopyState& state) {
  const FlashPartition partition(kPartitions[copy]);
  (void)printf("%s, %s\n", kCopyNames[copy], kPartitions[copy]);
  print_device(partition);
  print_areas(partition);
  if (!state.reachable) {
    (void)printf("  state       cannot be read\n");
    return;
  }
  const char* const verdict = !state.length_right ? "not checked"
                              : state.md5_right   ? "right"
                                                  : "wrong";
  (void)printf("  id          0x%04X, %s\n", state.header.id,
               state.header.id == kCopyId ? "right" : "wrong");
  (void)printf("  length      %u bytes%s\n", state.header.length,
               state.length_right ? "" : ", wrong");
  (void)printf("  MD5         %s, %s\n", digest_of(state).c_str(), verdict);
  (void)printf("  state       %s\n", describe(state));
}

void print_choice(const BootChoice& choice) {
  if (!choice.known) {
    (void)printf("what a boot takes is not known\n");
  } else if (choice.copy == kNeither) {
    (void)printf("a boot takes the factory defaults\n");
  } else if (choice.other_version) {
    (void)printf("a boot takes the factory defaults: the %s is of another version\n",
                 kCopyNames[choice.copy]);
  } else {
    (void)printf("a boot takes the %s\n", kCopyNames[choice.copy]);
  }
}

// ---- For programs ---------------------------------------------------------

void put_device(Printer& printer, const FlashPartition& partition) {
  constexpr const char* kKinds[] = {"missing", "file", "mtd"};
  printer.text("kind", kKinds[static_cast<int>(partition.kind())]);
  printer.number("size", partition.size());
  if (partition.kind() != Kind::kMtd) return;
  const mtd_info_user& info = partition.geometry();
  printer.number("erase_block", info.erasesize);
  printer.number("page", info.writesize);
  printer.number("spare", info.oobsize);
  printer.flag("known", partition.known());
  printer.begin_list("bad_blocks");
  for (unsigned offset = 0; partition.find_bad_block(offset); offset += info.erasesize) {
    printer.number(nullptr, offset);
  }
  printer.end_list();
}

void put_areas(Printer& printer, const FlashPartition& partition) {
  constexpr const char* kStates[] = {"none", "right", "wrong"};
  printer.text("area_table", kStates[static_cast<int>(partition.area_state())]);
  printer.begin_list("areas");
  for (const flash_area_entry& area : partition.areas()) {
    printer.begin_object(nullptr);
    printer.number("id", area.id);
    printer.number("attr", area.attr);
    printer.number("offset", area.offset);
    printer.number("reserve_size", area.reserve_size);
    printer.number("used_size", area.used_size);
    printer.end_object();
  }
  printer.end_list();
}

void put_state(Printer& printer, const CopyState& state) {
  printer.flag("reachable", state.reachable);
  printer.number("id", state.header.id);
  printer.flag("id_right", state.header.id == kCopyId);
  printer.number("length", state.header.length);
  printer.flag("length_right", state.length_right);
  printer.text("md5", digest_of(state).view());
  printer.flag("md5_right", state.md5_right);
  printer.flag("intact", state.intact);
}

void put_copy(Printer& printer, int copy, const CopyState& state) {
  const FlashPartition partition(kPartitions[copy]);
  printer.begin_object(kShortNames[copy]);
  printer.text("device", kPartitions[copy]);
  put_device(printer, partition);
  put_areas(printer, partition);
  put_state(printer, state);
  printer.end_object();
}

void put_choice(Printer& printer, const BootChoice& choice) {
  const bool defaults = choice.copy == kNeither || choice.other_version;
  printer.text("boot", !choice.known ? "unknown"
                       : defaults    ? "defaults"
                                     : kShortNames[choice.copy]);
  printer.flag("other_version", choice.other_version);
}

// ---- Verifying ------------------------------------------------------------

using Verdict = StringBuffer<40>;

constexpr char kGood[] = "intact";
constexpr char kUnknown[] = "intact, but not unpacked";

// Every other one than these two is bad.
Verdict verdict_on(int copy, const CopyState& state) {
  Verdict verdict;
  if (!state.reachable) {
    verdict.append("cannot be read");
  } else if (state.header.id != kCopyId) {
    verdict.append_format("wrong id 0x%04X", state.header.id);
  } else if (!state.length_right) {
    verdict.append_format("wrong length %u", state.header.length);
  } else if (!state.md5_right) {
    verdict.append("wrong MD5");
  } else {
    constexpr const char* kVerdicts[] = {kUnknown, "holds no valid settings", kGood};
    verdict.append(kVerdicts[static_cast<int>(look_into(copy, state))]);
  }
  return verdict;
}

}  // namespace

int show_flash(const Request& request) {
  const CopyState copies[2] = {inspect_copy(kNormalIndex), inspect_copy(kBackupIndex)};
  const BootChoice choice = choose_as_boot(copies);
  const bool equal = are_equal(copies[kNormalIndex], copies[kBackupIndex]);
  if (request.for_programs()) {
    Printer printer(request);
    put_copy(printer, kNormalIndex, copies[kNormalIndex]);
    put_copy(printer, kBackupIndex, copies[kBackupIndex]);
    put_choice(printer, choice);
    printer.flag("equal", equal);
  } else {
    print_copy(kNormalIndex, copies[kNormalIndex]);
    print_copy(kBackupIndex, copies[kBackupIndex]);
    print_choice(choice);
    (void)printf("the copies %s\n", equal ? "are equal" : "differ");
  }
  if (!choice.known) return fail(kSystemError, "%s", kNotUnpackedReason);
  return equal ? kDone : kNotFound;
}

int verify_flash(const Request& request) {
  SettingsLock lock;  // a save that is running would pass for damage
  if (const int code = lock.wait(); code != kDone) return code;
  const CopyState copies[2] = {inspect_copy(kNormalIndex), inspect_copy(kBackupIndex)};
  const bool equal = are_equal(copies[kNormalIndex], copies[kBackupIndex]);
  Printer printer(request);
  bool good = equal;
  bool known = true;
  for (const int copy : {kNormalIndex, kBackupIndex}) {
    const Verdict verdict = verdict_on(copy, copies[copy]);
    good = good && verdict.view() == kGood;
    known = known && verdict.view() != kUnknown;
    if (printer.plain()) {
      (void)printf("%s, %s: %s\n", kCopyNames[copy], kPartitions[copy], verdict.c_str());
    } else {
      printer.text(kShortNames[copy], verdict.view());
    }
  }
  if (printer.plain()) {
    (void)printf("the copies %s\n", equal ? "are equal" : "differ");
  } else {
    printer.flag("equal", equal);
  }
  if (!known) return fail(kSystemError, "%s", kNotUnpackedReason);
  return good ? kDone : kNotFound;
}

}  // namespace kt::tools
