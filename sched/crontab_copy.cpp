#include "sched/crontab_copy.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "base/io.h"
#include "base/paths.h"
#include "base/unique_fd.h"
#include "ktcomm/sched.h"
#include "sched/local_now.h"

namespace kt {
namespace {

constexpr size_t kSuffixSize = 5;

[[nodiscard]] bool copy_all(int in, int out) {
  char chunk[256];
  ssize_t count = 0;
  while ((count = read_fully(in, chunk, sizeof chunk)) > 0) {
    if (!write_fully(out, chunk, static_cast<size_t>(count))) return false;
  }
  return count == 0;
}

}  // namespace

CrontabCopy::CrontabCopy() {
  char suffix[kSuffixSize];
  (void)SCHDGetRandom4(suffix);
  path_.append(paths::kCrontabCopy);
  path_.append(suffix);
}

CrontabCopy::~CrontabCopy() {
  if (created_ && !crontab_harmed_) (void)::unlink(path_.c_str());
}

bool CrontabCopy::create() {
  stream_ = open_file(path_.c_str(), "w+e");
  created_ = stream_.ok();
  return created_;
}

bool CrontabCopy::put_in_place() {
  if (!stream_.close()) return false;
  const unique_fd in = open_fd(path_.c_str(), O_RDONLY);
  if (!in.ok()) return false;
  unique_fd out = open_fd(paths::kCrontab, O_WRONLY | O_CREAT | O_TRUNC, kCrontabMode);
  if (!out.ok()) return false;
  crontab_harmed_ = !copy_all(in.get(), out.get()) || out.close() != 0;
  return !crontab_harmed_;
}

}  // namespace kt

int SCHDGetRandom4(char* out) {
  if (out == nullptr) return -1;
  memset(out, 0, kt::kSuffixSize);
  const struct tm now = kt::local_now();
  // Minute and second need one byte more than they get; whatever of them the C
  // library leaves there will do.
  (void)strftime(out, kt::kSuffixSize - 1, "%M%S", &now);
  return 0;
}
