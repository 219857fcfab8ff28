#include "tools/settings_write.h"

#include <ktcomm/config.h>
#include <string.h>

#include "base/paths.h"
#include "tools/ktctl.h"
#include "tools/settings_changes.h"
#include "tools/settings_lock.h"

namespace kt::tools {

bool read_value(const Section& section, const char* key, FILE* file, Value& value) {
  return PRO_GetStr(section.name(), key, value.text, kValueLimit, file) == 0;
}

int not_written(const char* path, const Section& section) {
  return fail(kSystemError,
              "%s: [%s]: not written: the file, %s or a copy of it in /tmp could not be "
              "written",
              path, section.text(), paths::kSettingsLock);
}

int store_value(const char* path, const Section& section, const char* key, const char* wanted) {
  if (!check_assignment(path, section, key, wanted)) return kRefused;
  if (const int code = check_target(path); code != kDone) return code;
  if (const int code = wait_until_unlocked(); code != kDone) return code;
  const Uninterrupted uninterrupted;
  if (PRO_SetStr(section.text(), key, wanted, path) != 0) return not_written(path, section);
  // The write does not tell whether its copy command found room on the disk.
  SettingsLock lock;
  lock.try_for_a_moment();
  const unique_file file = open_file(path, "re");
  Value value;
  const bool written =
      file.ok() && read_value(section, key, file.get(), value) && strcmp(value.text, wanted) == 0;
  return written ? kDone : not_written(path, section);
}

}  // namespace kt::tools
