#include "tools/flash_trial.h"

#include <stdlib.h>
#include <sys/stat.h>

#include "base/paths.h"
#include "base/scope_exit.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "flash/copy_header.h"
#include "tools/settings_lock.h"

namespace kt::tools {

long long packed_size(const char* path) {
  const WaitingSignals signals;
  char folder[] = "/tmp/ktctlXXXXXX";
  if (::mkdtemp(folder) == nullptr) return -1;
  const ScopeExit remove([&folder] { (void)run_shell("/bin/rm -rf %s", folder); });
  StringBuffer<sizeof folder + 10> archive;
  archive.append_format("%s/packed.tgz", folder);
  struct stat status = {};
  const bool packed =
      run_shell("{ mkdir %s/env; [ ! -d %s ] || /bin/cp -R %s/. %s/env/; } >/dev/null 2>&1", folder,
                paths::kSettingsDirectory, paths::kSettingsDirectory, folder) &&
      run_shell("/bin/cp -f %s %s/env/system.conf >/dev/null 2>&1", path, folder) &&
      run_shell("cd %s; /bin/tar zcf %s env >/dev/null 2>&1", folder, archive.c_str()) &&
      ::stat(archive.c_str(), &status) == 0;
  return packed ? static_cast<long long>(status.st_size) : -1;
}

bool has_room(const FlashPartition& partition, long long length) {
  constexpr long long kUnit = 65536;
  // A file that is no image of a partition grows.
  const bool grows =
      partition.kind() == FlashPartition::Kind::kFile && partition.size() % kUnit != 0;
  return grows || partition.size() == 0 || kArchiveOffset + length <= partition.size();
}

}  // namespace kt::tools
