#include "tools/trace_tables.h"

#include <errno.h>
#include <fcntl.h>
#include <ktcomm/log.h>
#include <string.h>

#include "base/io.h"
#include "base/line_reader.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"

namespace kt::tools {
namespace {

constexpr size_t kPieceSize = 65536;
constexpr int kModules = sizeof mod_define / sizeof mod_define[0] - 1;  // without the end

using ProcPath = StringBuffer<40>;

ProcPath proc_path(int pid, const char* name) {
  ProcPath path;
  path.append_format("/proc/%d/%s", pid, name);
  return path;
}

// All that a program does not change: numbers enough to leave no doubt.
[[nodiscard]] bool is_table(const unsigned char* bytes) {
  mod_define_entry row;
  for (int i = 0; i < kModules; ++i, bytes += sizeof row) {
    memcpy(&row, bytes, sizeof row);
    const mod_define_entry& ours = mod_define[i];
    if (row.max_size != ours.max_size || row.flash_slots != ours.flash_slots ||
        row.log_count != ours.log_count || row.keep[0] != ours.keep[0] ||
        row.keep[1] != ours.keep[1] || row.name == nullptr) {
      return false;
    }
  }
  memcpy(&row, bytes, sizeof row);
  return row.name == nullptr && row.max_size == 0;
}

}  // namespace

// Data of a program or a library that it may write to, as far as it lies in the file
// and behind it.
bool TraceTables::next_range(FILE* maps, Range& range) {
  char line[512];
  while (read_line(maps, line, sizeof line) != 0) {
    char rights[5];
    char name[2] = "";
    if (sscanf(line, "%llx-%llx %4s %*s %*s %*s %1s", &range.start, &range.end, rights, name) < 3) {
      continue;
    }
    const bool writable = strcmp(rights, "rw-p") == 0;
    const bool goes_on = name[0] == '\0' && range.start == end_of_last_;
    if (!writable || (name[0] != '/' && !goes_on)) continue;
    end_of_last_ = range.end;
    return true;
  }
  return false;
}

void TraceTables::search(Range range) {
  Address at = range.start;
  while (range.end - at >= sizeof mod_define) {
    const size_t size =
        range.end - at < kPieceSize ? static_cast<size_t>(range.end - at) : kPieceSize;
    if (!pread_fully(memory_.get(), piece_.get(), size, static_cast<off_t>(at))) return;
    for (size_t i = 0; i + sizeof mod_define <= size; i += alignof(mod_define_entry)) {
      if (!is_table(piece_.get() + i)) continue;
      if (count_ < kMost) places_[count_++] = at + i;
    }
    if (size < kPieceSize) return;
    at += kPieceSize - sizeof mod_define + alignof(mod_define_entry);  // one may lie across
  }
}

TraceTables::Found TraceTables::find(int pid, bool for_writing) {
  count_ = 0;
  end_of_last_ = 0;
  errno = 0;
  const unique_file maps = open_file(proc_path(pid, "maps").c_str(), "re");
  memory_ = open_fd(proc_path(pid, "mem").c_str(), for_writing ? O_RDWR : O_RDONLY);
  piece_ = allocate<unsigned char>(kPieceSize);
  if (!maps.ok() || !memory_.ok() || piece_ == nullptr) {
    return errno == EACCES || errno == EPERM ? Found::kForbidden : Found::kNone;
  }
  // A table may lie across the end of the file, and so in two ranges.
  Range joined = {};
  for (Range range; next_range(maps.get(), range); joined.end = range.end) {
    if (range.start == joined.end) continue;
    search(joined);
    joined.start = range.start;
  }
  search(joined);
  return count_ != 0 ? Found::kFound : Found::kNone;
}

bool TraceTables::read_level(int module, int& level) const {
  mod_define_entry row;
  const Address place = places_[0] + static_cast<unsigned>(module) * sizeof row;
  if (!pread_fully(memory_.get(), &row, sizeof row, static_cast<off_t>(place))) return false;
  level = row.level;
  return true;
}

bool TraceTables::write_level(int module, int level) const {
  for (int i = 0; i < count_; ++i) {
    const Address place = places_[i] + static_cast<unsigned>(module) * sizeof(mod_define_entry) +
                          offsetof(mod_define_entry, level);
    if (pwrite_fully(memory_.get(), &level, sizeof level, static_cast<off_t>(place))) continue;
    // The memory of a process that has ended takes nothing, which is told as a lack of space.
    if (errno == ENOSPC) errno = ESRCH;
    return false;
  }
  return true;
}

}  // namespace kt::tools
