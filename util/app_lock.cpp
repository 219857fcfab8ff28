#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "base/pause.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"
#include "ktcomm/util_process.h"
#include "util/pid_list.h"
#include "util/small_file.h"

namespace kt {
namespace {

constexpr size_t kLockFileLimit = 63;
constexpr int kTryAgain = -2;

enum LockFile : int { kBadArgument = -1, kTaken = 0, kNotWritten = 1, kHeldByLiveProcess = 2 };

using PidText = StringBuffer<15>;

// Ends the instance that a lock file names, with a second request for one that
// is slow to go.
void end_instance(const char* name, int pid) {
  (void)kill(pid, SIGTERM);  // it may be gone already
  pause_s(1);
  if (CheckAppsPidAlive(name, pid) == 1) (void)kill(pid, SIGTERM);
}

}  // namespace
}  // namespace kt

int WritePidToFile(const char* path) {
  if (path == nullptr) return -1;
  const pid_t pid = getpid();
  kt::PidText text;
  text.append_format("%u\n", static_cast<unsigned>(pid));
  return kt::write_small_file(path, O_RDWR, text.c_str(), text.size()) ? pid : -1;
}

int create_apps_lock_file(const char* path) {
  if (path == nullptr) return kt::kBadArgument;
  const int holder = kt::decimal_in_file(path, kt::kLockFileLimit).value_or(0);
  if (holder > 0 && kill(holder, 0) == 0) return kt::kHeldByLiveProcess;

  kt::PidText text;
  text.append_format("%d", static_cast<int>(getpid()));
  const bool written = kt::write_small_file(path, O_WRONLY, text.c_str(), text.size());
  return written ? kt::kTaken : kt::kNotWritten;
}

int check_app_filelock(const char* name, const char* path) {
  if (name == nullptr || path == nullptr) return -1;
  kt::unique_fd lock = kt::open_fd(path, O_WRONLY | O_CREAT | O_EXCL, 0644);
  if (lock.ok() || errno != EEXIST) return lock.release();

  const int pid = kt::read_pid_list(path).value_or(kt::PidList{}).first_pid();
  if (pid > 0) kt::end_instance(name, pid);
  (void)unlink(path);  // when it stays, the caller's next try comes here again
  return kt::kTryAgain;
}
