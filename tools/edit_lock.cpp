#include "tools/edit_lock.h"

#include <errno.h>
#include <string.h>

#include "tools/ktctl.h"

namespace kt::tools {

bool lock_edit(FlockFile& lock, const char* path) {
  constexpr mode_t kMode = 0666;
  if (lock.open(path, kMode) && lock.lock_over_signals()) return true;
  (void)fail(kSystemError, "%s: %s", path, strerror(errno));
  return false;
}

}  // namespace kt::tools
