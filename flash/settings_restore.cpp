#include "flash/settings_restore.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "flash/settings_check.h"
#include "flash/settings_copy.h"
#include "flash/trace.h"
#include "ktcomm/config.h"
#include "ktcomm/flash.h"
#include "ktcomm/util.h"

namespace kt {
namespace {

void remove_temporary_archives() {
  (void)::unlink(kNormal.archive);  // mostly one of them is not there
  (void)::unlink(kBackup.archive);
}

[[nodiscard]] int unpack(const SettingsCopy& copy) {
  enum : int { kDone = 0, kNoCopy = -1, kNotUnpacked = -2, kNotValid = -3 };
  if (kt_flash_get_env_from_flash(copy) < -1) return kNoCopy;
  if (!run_shell("cd %s; /bin/tar zxf  %s  >/dev/null 2>/dev/null", paths::kRamDisk,
                 copy.archive)) {
    return kNotUnpacked;
  }
  if (!valid_chk_conf_file(paths::kSettings)) {
    fl_clear_env_dir();
    return kNotValid;
  }
  return kDone;
}

[[nodiscard]] int fl_conf_flash2ram(const SettingsCopy& copy) {
  int result = 0;
  if (!valid_chk_conf_file(paths::kSettings)) {
    fl_clear_env_dir();
    result = unpack(copy);
  }
  remove_temporary_archives();
  return result;
}

// True when the settings are of the configuration version of the defaults, or
// when there are no defaults to compare with.
[[nodiscard]] bool is_current_version(const char* path) {
  constexpr int kLimit = 32;
  const unique_file defaults = open_file(paths::kDefaultSettings, "re");
  if (!defaults.ok()) return true;
  const unique_file settings = open_file(path, "re");
  if (!settings.ok()) return false;
  char wanted[kLimit + 1] = "";
  char stored[kLimit + 1] = "";
  // Settings without a version read that of the defaults, and so are current.
  (void)PRO_GetStr("[SYSTEM]", "cfg_ver", wanted, kLimit, defaults.get());
  (void)PRO_GetStr("[SYSTEM]", "cfg_ver", stored, kLimit, settings.get());
  return strcmp(wanted, stored) == 0;
}

[[nodiscard]] int copy_defaults(const char* path) {
  StringBuffer<kCommandLength> command;
  command.append_format("/bin/cp -rf %s %s >/dev/null 2>/dev/null", paths::kDefaultSettings, path);
  if (command.truncated()) return -1;
  errno = 0;  // system_with_lock takes an old ECHILD for success
  return system_with_lock(command.c_str());
}

[[nodiscard]] int fl_reset_to_default(const char* path) {
  enum : int { kDone = 0, kNoName = -1, kNoDirectory = -2, kNotCopied = -3 };
  if (path == nullptr) {
    (void)AddLogDbg("File name is NULL\n");
    return kNoName;
  }
  if (::access(paths::kSettingsDirectory, F_OK) == 0) {
    (void)run_shell("/bin/rm %s >/dev/null 2>/dev/null", paths::kSettingsLineCount);  // if there
  } else if (!run_shell("/bin/mkdir -p  %s >/dev/null 2>/dev/null", paths::kSettingsDirectory)) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) create %s ERROR\n", paths::kSettingsDirectory);
    return kNoDirectory;
  }
  if (copy_defaults(path) != 0) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) copy file ERROR\n");
    return kNotCopied;
  }
  if (::access(paths::kSettingsChanged, F_OK) == 0) {
    StringBuffer<127> command;
    command.append_format("/bin/rm -f %s >/dev/null 2>/dev/null", paths::kSettingsChanged);
    (void)system_with_lock(command.c_str());  // a marker left behind does no harm
  }
  return kDone;
}

}  // namespace

void fl_clear_env_dir() {
  (void)run_shell("/bin/rm -rf  %s  >/dev/null 2>/dev/null", paths::kSettingsDirectory);
}

}  // namespace kt

using namespace kt;

int fl_read_conf(const char* path) {
  if (fl_conf_flash2ram(kNormal) == 0) {
    KT_TRACE_TWICE(Progress, "%s(%d)%s(%d) get normal configuration OK\n");
  } else if (fl_conf_flash2ram(kBackup) == 0) {
    KT_TRACE_TWICE(Progress, "%s(%d)%s(%d) get back up configuration OK\n");
  } else {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d) get both configuration ERROR\n");
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d) do facotry default directly\n");
    return fl_reset_to_default(path);
  }
  // Firmware whose defaults carry another version discards the stored settings.
  if (!is_current_version(path)) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d) do facotry default directly\n");
    return fl_reset_to_default(path);
  }
  KT_TRACE_TWICE(Progress, "%s(%d)%s(%d) check cfg version OK\n");
  return 0;
}
