#include "tools/flash_copies.h"

#include <fcntl.h>
#include <ktcomm/config.h>
#include <ktcomm/flash.h>
#include <ktcomm/util_hash.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/file_lock.h"
#include "base/io.h"
#include "base/shell.h"
#include "base/unique_file.h"
#include "base/unique_malloc.h"
#include "flash/flash_device.h"
#include "tools/settings_lock.h"

namespace kt::tools {
namespace {

constexpr unsigned kPieceSize = 65536;

using Piece = unique_malloc<unsigned char[]>;

[[nodiscard]] bool fits(unsigned length, long long partition_size) {
  return partition_size >= kArchiveOffset && length <= partition_size - kArchiveOffset;
}

// Hands the archive of a copy to `take(data, size)` in pieces; false when that
// or the device fails.
template <typename F>
[[nodiscard]] bool read_archive(int copy, unsigned length, F take) {
  FlashDevice partition(kPartitions[copy], O_RDONLY);
  const Piece piece = allocate<unsigned char>(kPieceSize);
  if (!partition.ok() || piece == nullptr || !partition.seek(kArchiveOffset)) return false;
  for (unsigned left = length; left != 0;) {
    const unsigned size = left < kPieceSize ? left : kPieceSize;
    if (!partition.read(piece.get(), size) || !take(piece.get(), size)) return false;
    left -= size;
  }
  return true;
}

[[nodiscard]] bool archive_matches(int copy, const CopyHeader& header) {
  md5_ctx md5;
  MD5Initial(&md5);
  const auto add = [&md5](const unsigned char* data, unsigned size) {
    MD5Process(&md5, data, size);
    return true;
  };
  if (!read_archive(copy, header.length, add)) return false;
  MD5Finsh(&md5);
  return memcmp(md5.digest, header.md5, sizeof header.md5) == 0;
}

// An empty file under a name of its own, deleted when the object dies.
class Scratch {
 public:
  Scratch() : fd_(::mkostemp(path_, O_CLOEXEC)) {}
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() {
    if (ok()) (void)::unlink(path_);
  }

  [[nodiscard]] bool ok() const { return fd_.ok(); }
  [[nodiscard]] int fd() const { return fd_.get(); }
  [[nodiscard]] const char* path() const { return path_; }

 private:
  WaitingSignals signals_;
  char path_[20] = "/tmp/ktctlXXXXXX";
  unique_fd fd_;
};

// Whether tar itself finds nothing to unpack in an archive, rather than that there was
// no room for it, or none for tar in the memory.
[[nodiscard]] bool holds_no_settings(const Scratch& archive) {
  return run_shell("/bin/tar zxOf %s env/system.conf >/dev/null 2>&1; [ $? -gt 0 -a $? -lt 126 ]",
                   archive.path());
}

// Unpacks the settings file of an intact copy, and nothing else of it, as a boot would;
// kSettings when a boot would accept it.
[[nodiscard]] Content unpack_settings(int copy, unsigned length, const Scratch& settings) {
  const Scratch archive;
  if (!archive.ok() || !settings.ok()) return Content::kUnknown;
  const auto keep = [&archive](const unsigned char* data, unsigned size) {
    return write_fully(archive.fd(), data, size);
  };
  if (!read_archive(copy, length, keep)) return Content::kUnknown;
  if (!run_shell("/bin/tar zxOf %s env/system.conf >%s 2>/dev/null", archive.path(),
                 settings.path())) {
    return holds_no_settings(archive) ? Content::kUnfit : Content::kUnknown;
  }
  const bool valid = calc_conf_line_num_and_check_ascii(settings.path()) >= 0;
  return valid ? Content::kSettings : Content::kUnfit;
}

[[nodiscard]] bool hold_the_same(const char* one_path, const char* other_path) {
  const unique_file one = open_file(one_path, "re");
  const unique_file other = open_file(other_path, "re");
  if (!one.ok() || !other.ok()) return false;
  int c;
  do {
    c = getc_unlocked(one.get());
    if (c != getc_unlocked(other.get())) return false;
  } while (c != EOF);
  return true;
}

[[nodiscard]] bool copy_archive(int source, int target, unsigned length) {
  FlashDevice partition(kPartitions[target]);
  // Asked before the first write: what does not fit must not cost the target.
  if (!partition.ok() || !fits(length, partition.size()) || !partition.seek(kArchiveOffset)) {
    return false;
  }
  const auto write = [&partition](const unsigned char* data, unsigned size) {
    return partition.write(data, size);
  };
  return read_archive(source, length, write) && partition.close();
}

[[nodiscard]] bool write_header(int target, const CopyHeader& header) {
  FlashDevice partition(kPartitions[target]);
  return partition.ok() && partition.seek(0) && partition.write(&header, sizeof header) &&
         partition.close();
}

[[nodiscard]] bool replace_copy(int source, const CopyState& good, int target) {
  return copy_archive(source, target, good.header.length) && archive_matches(target, good.header) &&
         write_header(target, good.header) && are_equal(inspect_copy(target), good);
}

}  // namespace

CopyState inspect_copy(int copy) {
  CopyState state;
  long long size = 0;
  {
    FlashDevice partition(kPartitions[copy], O_RDONLY);
    CopyHeader header;
    if (!partition.ok() || !partition.seek(0) || !partition.read(&header, sizeof header)) {
      return state;
    }
    state.reachable = true;
    state.header = header;
    size = partition.size();
  }
  state.length_right = state.header.length != 0 && fits(state.header.length, size);
  state.md5_right = state.length_right && archive_matches(copy, state.header);
  state.intact = state.header.id == kCopyId && state.md5_right;
  return state;
}

const char* describe(const CopyState& state) {
  if (!state.reachable) return "cannot be read";
  return state.intact ? "intact" : "broken";
}

bool are_equal(const CopyState& one, const CopyState& other) {
  return one.intact && other.intact && one.header.length == other.header.length &&
         memcmp(one.header.md5, other.header.md5, sizeof one.header.md5) == 0;
}

Content look_into(int copy, const CopyState& state, const char* path) {
  if (!state.intact) return Content::kUnfit;
  const Scratch settings;
  const Content content = unpack_settings(copy, state.header.length, settings);
  const bool same =
      content == Content::kSettings && path != nullptr && hold_the_same(settings.path(), path);
  return same ? Content::kSameSettings : content;
}

bool is_other_version(const char* settings_path) {
  constexpr int kLimit = 32;
  const unique_file defaults = open_file(paths::kDefaultSettings, "re");
  const unique_file settings = open_file(settings_path, "re");
  if (!defaults.ok() || !settings.ok()) return false;
  char wanted[kLimit + 1] = "";
  char stored[kLimit + 1] = "";
  // A version missing here is looked up there, and then is the same.
  (void)PRO_GetStr("SYSTEM", "cfg_ver", wanted, kLimit, defaults.get());
  (void)PRO_GetStr("SYSTEM", "cfg_ver", stored, kLimit, settings.get());
  return strcmp(wanted, stored) != 0;
}

BootChoice choose_as_boot(const CopyState (&copies)[2]) {
  for (int copy = kNormalIndex; copy <= kBackupIndex; ++copy) {
    if (!copies[copy].intact) continue;
    const Scratch settings;
    const Content content = unpack_settings(copy, copies[copy].header.length, settings);
    if (content == Content::kUnknown) return {false};
    if (content == Content::kSettings) return {true, copy, is_other_version(settings.path())};
  }
  return {};
}

Content read_copy(int copy, Text& text) {
  const CopyState state = inspect_copy(copy);
  if (!state.intact) return Content::kUnfit;
  const Scratch settings;
  const Content content = unpack_settings(copy, state.header.length, settings);
  if (content != Content::kSettings) return content;
  const unique_file file = open_file(settings.path(), "re");
  return file.ok() && text.read(file.get()) ? content : Content::kUnknown;
}

Repair find_repair() {
  Repair repair;
  repair.found[kNormalIndex] = inspect_copy(kNormalIndex);
  repair.found[kBackupIndex] = inspect_copy(kBackupIndex);
  repair.result = RepairResult::kNotNeeded;
  if (are_equal(repair.found[kNormalIndex], repair.found[kBackupIndex])) return repair;
  // An intact copy must not be given up only because there was no room to look into it.
  const BootChoice choice = choose_as_boot(repair.found);
  repair.source = choice.copy;
  repair.result = !choice.known             ? RepairResult::kNotUnpacked
                  : choice.copy == kNeither ? RepairResult::kNoSource
                                            : RepairResult::kNeeded;
  return repair;
}

Repair repair_copies() {
  Repair repair;
  FlockFile lock;
  if (!lock.open(paths::kSettingsLock, paths::kSettingsLockMode) || !lock.lock_over_signals())
    return repair;
  repair = find_repair();
  if (repair.result != RepairResult::kNeeded) return repair;
  const CopyState& good = repair.found[repair.source];
  repair.result = replace_copy(repair.source, good, repair.target()) ? RepairResult::kRepaired
                                                                     : RepairResult::kNotRepaired;
  return repair;
}

}  // namespace kt::tools
