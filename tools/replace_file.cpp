#include "tools/replace_file.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/io.h"
#include "base/scope_exit.h"
#include "base/unique_fd.h"
#include "base/unique_malloc.h"
#include "tools/ktctl.h"
#include "tools/settings_lock.h"

namespace kt::tools {
namespace {

constexpr char kSuffix[] = ".XXXXXX";

// False with errno, the new file gone.
bool write_and_rename(const char* path, const struct stat& status, std::string_view content) {
  char name[PATH_MAX + sizeof kSuffix];
  (void)snprintf(name, sizeof name, "%s%s", path, kSuffix);
  const unique_fd fd(::mkostemp(name, O_CLOEXEC));
  if (!fd.ok()) return false;
  // Only root may give a file away.
  const bool given = ::fchown(fd.get(), status.st_uid, status.st_gid) == 0 || errno == EPERM;
  if (given && ::fchmod(fd.get(), status.st_mode & 07777) == 0 &&
      write_fully(fd.get(), content.data(), content.size()) && ::fsync(fd.get()) == 0 &&
      ::rename(name, path) == 0) {
    return true;
  }
  const ErrnoKeeper keeper;
  (void)::unlink(name);
  return false;
}

}  // namespace

int replace_file(const char* path, std::string_view content) {
  const Uninterrupted uninterrupted;
  // A link goes on leading to the file.
  const unique_malloc<char> target(::realpath(path, nullptr));
  struct stat status;
  if (target == nullptr || ::stat(target.get(), &status) != 0) return fail_errno(path);
  if (write_and_rename(target.get(), status, content)) return kDone;
  return fail(kSystemError, "%s: not written: %s", path, strerror(errno));
}

}  // namespace kt::tools
