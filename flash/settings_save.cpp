#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "base/file_lock.h"
#include "base/paths.h"
#include "base/shell.h"
#include "flash/settings_archive.h"
#include "flash/settings_check.h"
#include "flash/settings_copy.h"
#include "flash/settings_restore.h"
#include "flash/trace.h"
#include "ktcomm/flash.h"
#include "ktcomm/util.h"

namespace kt {
namespace {

enum SaveResult : int {
  kSaved = 0,
  kNotLockedOrNotValid = -1,
  kNotWritten = -2,
  kNotPacked = -3,
  kNotDigested = -4
};

// Puts the file at `path` in place of the settings. One that cannot be copied
// leaves the settings as they are.
[[nodiscard]] bool take_settings(const char* path) {
  struct stat given, live;
  if (::stat(path, &given) != 0 || !S_ISREG(given.st_mode)) return false;
  // Under whatever name: cp refuses to copy a file onto itself.
  const bool in_place = ::stat(paths::kSettings, &live) == 0 && given.st_dev == live.st_dev &&
                        given.st_ino == live.st_ino;
  return in_place || run_shell("/bin/cp -f %s %s >/dev/null 2>/dev/null", path, paths::kSettings);
}

}  // namespace
}  // namespace kt

using namespace kt;

int fl_write_conf(const char* path) {
  if (path == nullptr || strlen(path) > kCommandLength / 2) return kNotLockedOrNotValid;
  FlockFile lock;
  if (!lock.open(paths::kSettingsLock, paths::kSettingsLockMode)) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) open lock file error.\n");
    return kNotLockedOrNotValid;
  }
  while (!lock.lock()) {
    if (errno != EINTR) {
      KT_TRACE_TWICE(Failure, "%s(%d)ENV:%s(%d)be interrupted when locking file\n");
      return kNotLockedOrNotValid;
    }
    KT_TRACE_TWICE(Progress, "%s(%d)ENV: %s(%d)try locking file.\n");
  }
  if (strcmp(path, paths::kSettings) != 0 && !take_settings(path)) return kNotLockedOrNotValid;
  if (!valid_chk_conf_file(paths::kSettings)) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) check config file fail\n");
    lock.release();  // restoring the defaults takes it, too
    fl_clear_env_dir();
    (void)fl_read_conf(paths::kSettings);  // the save has failed either way
    return kNotLockedOrNotValid;
  }

  SettingsArchive archive;  // gone before the lock: the next process may choose the same name
  if (!archive.pack(SettingsArchive::kZcf) || !archive.measure()) return kNotPacked;
  if (!archive.digest()) return kNotDigested;
  const CopyHeader& header = archive.header();
  char md5[33];
  (void)md5_value_to_str(md5, sizeof md5, header.md5);  // the size is right
  KT_TRACE_TWICE(Progress, "%s(%d)ENV: %s(%d),  ENV_ID=%d, flen= %d  md5val=%s\n\n", header.id,
                 static_cast<int>(header.length), md5);
  if (!archive_fits(header.length, kBackup) || !archive_fits(header.length, kNormal)) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) archive does not fit\n");
    return kNotWritten;
  }

  // The backup first: until it is whole, the normal copy holds the old settings.
  const int backup = fl_conf_ram2flash(archive.path(), header, kBackup);
  KT_TRACE_TWICE(Progress, "%s(%d)ENV: %s(%d)ret1 = %d\n", backup);
  const int result =
      fl_conf_ram2flash(archive.path(), header, kNormal) == kCopyDone ? kSaved : kNotWritten;
  KT_TRACE_TWICE(Progress, "%s(%d)ENV: %s(%d)ret = %d, unlock fd = %d.\n", result, lock.fd());
  return result;
}

int fl_reset_write_conf(const char* path) {
  return fl_write_conf(path);
}
