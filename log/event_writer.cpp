#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string_view>

#include "base/io.h"
#include "base/paths.h"
#include "base/pause.h"
#include "base/scope_exit.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "ktcomm/log.h"
#include "log/event_file.h"
#include "log/event_text.h"

namespace kt {

bool open_event_log(FlockFile& log) {
  constexpr mode_t kMode = 0644;
  return log.open(paths::kEventLog, kMode);
}

bool lock_event_log(FlockFile& log, int tries) {
  constexpr unsigned kPauseMs = 10;
  for (; tries > 0; --tries) {
    if (log.lock_at_once()) return true;
    pause_ms(kPauseMs);
  }
  return false;
}

namespace {

constexpr size_t kLogLimit = 16384;
constexpr int kLockTries = 10;

using Insertion = StringBuffer<2 * (kEventLength + 1)>;  // an entry and the overflow notice

std::optional<off_t> file_size(int fd) {
  struct stat status;
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return status.st_size;
}

// Adds catalogue message 1, once after each ClearLog, below the entry that
// makes the log overflow first.
void note_overflow(Insertion& insertion, long time) {
  if (::access(paths::kEventLogWrapped, F_OK) == 0) return;
  (void)run_shell("/bin/touch %s > /dev/null 2>/dev/null", paths::kEventLogWrapped);
  const unique_file catalogue = open_file(paths::kEventCatalogue, "re");
  EventMessage message;
  if (!catalogue.ok() || !read_event_message("LOG", 1, message, catalogue.get())) return;
  insertion.append(make_event_record(time, message.view()).view());
}

// Writes `text` at `offset`, the end of the file, or not at all.
bool write_at_end(int fd, off_t offset, std::string_view text) {
  if (::lseek(fd, offset, SEEK_SET) == offset && write_fully(fd, text.data(), text.size())) {
    return true;
  }
  (void)::ftruncate(fd, offset);
  return false;
}

// How many of the log's `size` bytes stay when `room` is left for them: whole lines
// only, so that a piece that a killed writer has left at the end goes, too. What
// fits and has no line feed at all stays.
std::optional<size_t> bytes_to_keep(const char* content, size_t size, size_t room) {
  const std::string_view fitting(content, size < room ? size : room);
  const size_t lines = fitting.rfind('\n') + 1;  // 0 when there is none
  if (lines != 0) return lines;
  if (size > room) return std::nullopt;
  return size;
}

// Puts `text` in front of the log's `size` bytes, moving them in place. The old
// end is cut off first, so that the file never grows beyond its limit. Then the file is made longer
// by a write: on a full file system that fails, where touching a page of the mapping that has no
// memory would kill the process.
bool insert_in_front(int fd, off_t size, std::string_view text) {
  void* const mapping = ::mmap(nullptr, kLogLimit, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (mapping == MAP_FAILED) return false;
  const ScopeExit unmap([=] { (void)::munmap(mapping, kLogLimit); });
  char* const content = static_cast<char*>(mapping);

  const auto kept = bytes_to_keep(content, static_cast<size_t>(size), kLogLimit - text.size());
  if (!kept) return false;
  const auto end = static_cast<off_t>(*kept);
  if (end != size && ::ftruncate(fd, end) != 0) return false;
  if (!write_at_end(fd, end, text)) return false;
  memmove(content + text.size(), content, *kept);
  memcpy(content, text.data(), text.size());
  return true;
}

bool store(int fd, std::string_view record, long time) {
  const std::optional<off_t> size = file_size(fd);
  if (!size) return false;
  Insertion insertion;
  insertion.append(make_event_line(record).view());
  if (*size + static_cast<off_t>(insertion.size()) > static_cast<off_t>(kLogLimit)) {
    note_overflow(insertion, time);
  }
  return insert_in_front(fd, *size, insertion.view());
}

}  // namespace
}  // namespace kt

int SaveMessageToLogFile(const char* record, long time) {
  if (record == nullptr || *record == '\0') return -1;
  kt::FlockFile log;
  // Descriptor 0 is what a program without standard input gets; it counts as
  // none.
  if (!kt::open_event_log(log) || log.fd() == 0) return -1;
  if (!kt::lock_event_log(log, kt::kLockTries)) return -1;
  const bool stored = kt::store(log.fd(), record, time);
  if (!log.unlock()) KT_DEBUGn_in(8, 0, 0, "%s(%d):Unlock failed\n", __func__, __LINE__);
  return stored ? 0 : -1;
}
