#include <fcntl.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <string_view>

#include "base/file_lock.h"
#include "base/io.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "base/scope_exit.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"
#include "ktcomm/log.h"
#include "ktcomm/util_process.h"
#include "log/datagram.h"

namespace kt {
namespace {

constexpr unsigned kModules = 17;
constexpr unsigned kSubLogs = 2;
constexpr off_t kFileLimit = 16384;
constexpr mode_t kStateMode = 0700;
constexpr mode_t kLogMode = 0644;

constexpr key_t kDebugDaemonQueue = 0x12345678;
constexpr long kSaveRequest = 1;
constexpr int kSaveDone = 19;

using Path = StringBuffer<127>;
using Line = StringBuffer<10239>;

struct SubLog {
  const char* directory;
  int module;
  int sub;
};

// The content of an info file.
struct Progress {
  uint32_t sequence;  // of the next line
  uint32_t file;      // the number of the current file
};
static_assert(sizeof(Progress) == 8);

struct SaveMessage {
  long type;
  int32_t words[5];  // reply type, module, sub-log, file number, wait flag
};
// The type word and five words, without the padding that a 64-bit machine adds.
constexpr int kSaveMessageSize = sizeof(long) + 5 * sizeof(int32_t);
static_assert(offsetof(SaveMessage, words) == sizeof(long));
#if __SIZEOF_POINTER__ == 4
static_assert(kSaveMessageSize == 24 && sizeof(SaveMessage) == 24);
#endif

unique_fd open_state(const SubLog& log, const char* kind) {
  Path path;
  path.append_format("%s/%s/~%d.%s", paths::kTraceDirectory, log.directory, log.sub, kind);
  return open_fd(path.c_str(), O_RDWR | O_CREAT, kStateMode);
}

unique_fd open_log(const SubLog& log, uint32_t file) {
  Path path;
  path.append_format("%s/%s/%d-%d.%s", paths::kTraceDirectory, log.directory, log.sub,
                     static_cast<int>(file), "log");
  return open_fd(path.c_str(), O_RDWR | O_CREAT | O_APPEND, kLogMode);
}

// Deletes the oldest file when the rotation leaves `full`. Below file 0 the
// unsigned number names a file that never is.
void delete_oldest(const SubLog& log, uint32_t full) {
  const auto keep = static_cast<uint32_t>(mod_define[log.module].keep[log.sub]);
  Path path;
  path.append_format("%s/%s/%d-%u.log", paths::kTraceDirectory, log.directory, log.sub,
                     full - 1 - keep);
  (void)::unlink(path.c_str());
}

// A new or short file counts as zeros.
Progress read_progress(int info) {
  Progress progress;
  const ssize_t count = ::pread(info, &progress, sizeof progress, 0);
  return count == sizeof progress ? progress : Progress{};
}

// Decided before writing: an empty file takes a line of any length.
bool is_full(int file, size_t line_length) {
  struct stat status;
  return ::fstat(file, &status) == 0 && status.st_size > 0 &&
         status.st_size + static_cast<off_t>(line_length) > kFileLimit;
}

void append_line(const SubLog& log, uint32_t& current, std::string_view line) {
  unique_fd file = open_log(log, current);
  if (is_full(file.get(), line.size())) {
    file.reset();
    (void)save_debug_to_flash(log.module, log.sub, static_cast<int>(current), 0);
    delete_oldest(log, current);
    ++current;
    file = open_log(log, current);
  }
  (void)write_fully(file.get(), line.data(), line.size());
}

void append_stamp(Line& line, const struct timeval& now, uint32_t sequence) {
  const struct tm local = local_time(now.tv_sec);
  line.append_format("[%04d-%02d-%02d %02d:%02d:%02d %06lu][%u]", local.tm_year + 1900,
                     local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                     static_cast<unsigned long>(now.tv_usec), sequence);
}

// No result is looked at on the way: tracing must not fail its callers, and
// without the directory the datagram is still sent. The function stays out of
// KT_DEBUGn_in so that a filtered line does not pay for its 10 KB frame.
[[gnu::noinline, gnu::format(printf, 3, 0)]] void write_line(int level, const SubLog& log,
                                                             const char* format,
                                                             va_list arguments) {
  struct timeval now = {};
  (void)::gettimeofday(&now, nullptr);

  // The lock file is opened once per line only: the end of any other descriptor
  // of it in this process would end the lock.
  unique_fd lock = open_state(log, "lock");
  (void)lock_record_waiting(lock.get());
  unique_fd info = open_state(log, "info");
  Progress progress = read_progress(info.get());

  Line line;
  line.append_format("[%d][%s]", level, log.directory);
  append_stamp(line, now, progress.sequence);
  line.append_format_list(format, arguments);

  append_line(log, progress.file, line.view());
  ++progress.sequence;
  (void)!::pwrite(info.get(), &progress, sizeof progress, 0);
  info.reset();
  (void)unlock_record(lock.get());
  lock.reset();

  send_datagram(paths::kTraceRelay, line.view());
}

}  // namespace
}  // namespace kt

int KT_DEBUGn_in(int level, int module, int sub, const char* format, ...) {
  if (static_cast<unsigned>(module) >= kt::kModules || static_cast<unsigned>(sub) >= kt::kSubLogs ||
      format == nullptr || mod_define[module].level < level) {
    return -1;
  }
  const kt::ErrnoKeeper errno_keeper;
  va_list arguments;
  va_start(arguments, format);
  kt::write_line(level, {mod_define[module].name, module, sub}, format, arguments);
  va_end(arguments);
  return 0;
}

int save_debug_to_flash(int module, int sub, int file_number, int wait) {
  const int queue = msg_init(kt::kDebugDaemonQueue);
  if (queue < 0) return 0;
  const int reply = wait != 0 ? kt::kSaveDone : 0;
  kt::SaveMessage message = {kt::kSaveRequest, {reply, module, sub, file_number, wait}};
  const bool sent = msg_send(queue, &message, kt::kSaveMessageSize) == 0;
  // Without a request there is no answer to wait for.
  if (sent && reply > 0) (void)msg_recv(queue, kt::kSaveDone, &message, kt::kSaveMessageSize);
  return 0;
}
