#include "tools/edit_lock.h"

#include "tools/lock_timeout.h"

namespace kt::tools {

int lock_edit(FlockFile& lock, const char* path) {
  constexpr mode_t kMode = 0666;
  return take_lock(lock, path, kMode);
}

}  // namespace kt::tools
