#include <errno.h>
#include <stdlib.h>

#include "base/file_lock.h"
#include "base/paths.h"
#include "base/unique_malloc.h"
#include "ktcomm/util_process.h"

int system_with_lock(const char* command) {
  if (command == nullptr) return -1;
  kt::FlockFile lock;
  if (!lock.open(kt::paths::kSettingsLock, kt::paths::kSettingsLockMode) ||
      !lock.lock_over_signals())
    return -1;
  const int status = system(command);
  // ECHILD: a signal handler of the caller's has reaped the shell. errno counts
  // as it stands, also when it is left over from before the call.
  return errno == ECHILD ? 0 : status;
}

int system_signal(const char* command) {
  char* escaped = nullptr;
  if (escape_sequence(command, &escaped) != 0) return -1;
  const kt::unique_malloc<char> owner(escaped);
  [[maybe_unused]] const int status = system(escaped);
  return 0;
}
