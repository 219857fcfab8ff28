// flash_copies.h - looking at the two copies of the settings in flash, and
// putting one in order from the other. Nothing here prints.
//
// The layout of a copy is described in doc/settings-copy.md.
#ifndef KTCOMM_TOOLS_FLASH_COPIES_H
#define KTCOMM_TOOLS_FLASH_COPIES_H

#include "base/paths.h"
#include "flash/copy_header.h"
#include "tools/settings_text.h"

namespace kt::tools {

inline constexpr int kNormalIndex = 0;
inline constexpr int kBackupIndex = 1;
inline constexpr int kNeither = -1;

inline constexpr const char* kPartitions[] = {paths::kNormalCopy, paths::kBackupCopy};
inline constexpr const char* kCopyNames[] = {"normal copy", "backup copy"};

// Said of Content::kUnknown and its like.
inline constexpr char kNotUnpackedReason[] =
    "/tmp: a copy could not be unpacked there; is it full?";

struct CopyState {
  bool reachable = false;     // its header could be read
  CopyHeader header = {};     // as it stands in flash; zeros when not reachable
  bool length_right = false;  // not 0, and within the partition
  bool md5_right = false;     // only looked at where the length is right
  bool intact = false;        // id, length and MD5 are right
};

[[nodiscard]] CopyState inspect_copy(int copy);

// "intact", or what is wrong with it, in a word or two.
[[nodiscard]] const char* describe(const CopyState& state);

// What an intact copy unpacks to, as a boot does it. It is kUnknown where it could not
// be unpacked in /tmp, which tells nothing about the copy.
enum class Content { kUnknown, kUnfit, kSettings, kSameSettings };

// Whether these are settings that a boot would accept, and the same as the file at
// `path` where one is given. A copy that is not intact holds none.
[[nodiscard]] Content look_into(int copy, const CopyState& state, const char* path = nullptr);

// Whether the two hold one and the same archive, both intact.
[[nodiscard]] bool are_equal(const CopyState& one, const CopyState& other);

// What a boot, which finds no settings on the RAM disk, makes of two copies.
struct BootChoice {
  bool known = true;           // false where /tmp had no room to look into an intact copy
  int copy = kNeither;         // the first that is intact and unpacks to valid settings
  bool other_version = false;  // but it is discarded: the defaults have another "cfg_ver"
};
[[nodiscard]] bool is_other_version(const char* settings_path);  // than that of the defaults
[[nodiscard]] BootChoice choose_as_boot(const CopyState (&copies)[2]);

// Reads the settings file that a copy holds; kSettings when that was done.
[[nodiscard]] Content read_copy(int copy, Text& text);

enum class RepairResult {
  kNotNeeded,    // both held the same archive already
  kNeeded,       // the other copy is to be made what `source` is; it was only looked at
  kRepaired,     // the other copy now holds what `source` holds
  kNoSource,     // neither copy holds settings: nothing was touched
  kNotRepaired,  // the other copy's partition or memory failed, or it is too small
  kNotUnpacked,  // /tmp has no room to see what a copy holds: nothing was touched
  kNotLocked,    // the lock could not be had: nothing was looked at
};

struct Repair {
  RepairResult result = RepairResult::kNotLocked;
  int source = kNeither;    // the copy that a boot takes; it is never written to
  CopyState found[2] = {};  // the copies as they were before

  [[nodiscard]] int target() const { return source == kNormalIndex ? kBackupIndex : kNormalIndex; }
};

// What there is to repair, without doing it: kNotNeeded, kNeeded, kNoSource or
// kNotUnpacked.
[[nodiscard]] Repair find_repair();

// Makes both copies hold what a boot takes. To be done after a boot has its
// settings: a save begins with the backup copy, so that over a broken normal
// copy it puts the only good one at risk.
//
// The archive comes first, is read back and only then gets its header. So the
// source is intact at every moment, and where the power is cut the other copy
// is what it was or counts as broken.
// Holds the lock of the settings, waiting for it.
[[nodiscard]] Repair repair_copies();

}  // namespace kt::tools

#endif
