#include "tools/lock_users.h"

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "base/line_reader.h"
#include "tools/plain_text.h"

namespace kt::tools {
namespace {

struct Row {
  LockUser user;
  unsigned device_major;
  unsigned device_minor;
  unsigned long long inode;
};

// Reads "1: -> FLOCK  ADVISORY  WRITE 123 00:1f:456 0 EOF", the arrow in front of
// those who wait; false for locks of other kinds.
[[nodiscard]] bool read_row(const char* line, Row& row) {
  const char* const arrow = strstr(line, "->");
  row.user.waits = arrow != nullptr;
  const char* const kind = row.user.waits ? arrow + 2 : strchr(line, ':') + 1;
  return sscanf(kind, " FLOCK %*s %*s %d %x:%x:%llu", &row.user.pid, &row.device_major,
                &row.device_minor, &row.inode) == 4;
}

// Reads a file of a process, blanks in the place of the NULs between arguments and
// question marks in that of control characters.
[[nodiscard]] ShortText read_of_process(pid_t pid, const char* name) {
  StringBuffer<40> path;
  path.append_format("/proc/%d/%s", static_cast<int>(pid), name);
  ShortText text;
  const unique_file file = open_file(path.c_str(), "re");
  char piece[256];
  const size_t read = file.ok() ? fread(piece, 1, sizeof piece - 1, file.get()) : 0;
  size_t length = read;
  while (length > 0 && (piece[length - 1] == '\0' || piece[length - 1] == '\n')) --length;
  for (size_t i = 0; i < length; ++i) {
    if (is_control(piece[i])) piece[i] = piece[i] == '\0' ? ' ' : '?';
  }
  text.append({piece, length});
  return text;
}

}  // namespace

LockUsers::LockUsers(int fd) : table_(open_file("/proc/locks", "re")) {
  struct stat status = {};
  (void)::fstat(fd, &status);  // else nothing matches
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

bool LockUsers::next(LockUser& user) {
  char line[256];
  while (table_.ok() && read_line(table_.get(), line, sizeof line) != 0) {
    Row row = {};
    if (strchr(line, ':') == nullptr || !read_row(line, row) || row.inode != inode_ ||
        row.device_major != major(device_) || row.device_minor != minor(device_)) {
      continue;
    }
    user = row.user;
    return true;
  }
  return false;
}

ShortText command_of(pid_t pid) {
  const ShortText line = read_of_process(pid, "cmdline");
  return line.size() != 0 ? line : read_of_process(pid, "comm");
}

ShortText describe_holder(int fd) {
  ShortText text;
  LockUsers users(fd);
  for (LockUser user; users.next(user);) {
    if (user.waits) continue;
    const ShortText name = read_of_process(user.pid, "comm");
    text.append_format("held by process %d (%s)", static_cast<int>(user.pid),
                       name.size() != 0 ? name.c_str() : "it has ended");
    return text;
  }
  text.append("held by another process");
  return text;
}

}  // namespace kt::tools
