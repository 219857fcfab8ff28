#include "flash/settings_archive.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include "base/shell.h"
#include "base/unique_fd.h"
#include "ktcomm/util.h"

namespace kt {

SettingsArchive::SettingsArchive() {
  name_.append_format("%s%ld.tgz", "env", random());
  path_.append(paths::kRamDisk);
  path_.append(name_.view());
}

bool SettingsArchive::pack(Flags flags) {
  if (flags == kZcf) {
    return run_shell("cd %s; /bin/tar zcf  %s  %s >/dev/null 2>/dev/null", paths::kRamDisk,
                     name_.c_str(), "env");
  }
  return run_shell("cd %s; /bin/tar czf  %s  %s >/dev/null 2>/dev/null", paths::kRamDisk,
                   name_.c_str(), "env");
}

bool SettingsArchive::measure() {
  const unique_fd file = open_fd(path(), O_RDONLY);
  const off_t length = file.ok() ? ::lseek(file.get(), 0, SEEK_END) : -1;
  if (length <= 0 || length > INT_MAX) return false;
  header_.id = kCopyId;
  header_.length = static_cast<unsigned>(length);
  return true;
}

bool SettingsArchive::digest() {
  const unique_fd file = open_fd(path(), O_RDONLY);
  return file.ok() && md5_stream(header_.md5, file.get(), 0, header_.length) == 0;
}

void SettingsArchive::remove() {
  (void)::unlink(path());
}  // gone is what it shall be

}  // namespace kt
