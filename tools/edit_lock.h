// edit_lock.h - locks that keep edits by ktctl apart, from what they read to what
// they write. Other programs know nothing of them.
#ifndef KTCOMM_TOOLS_EDIT_LOCK_H
#define KTCOMM_TOOLS_EDIT_LOCK_H

#include "base/file_lock.h"

namespace kt::tools {

// Waits for the lock at `path`. Returns kDone, or the exit code after it has said
// why not.
[[nodiscard]] int lock_edit(FlockFile& lock, const char* path);

}  // namespace kt::tools

#endif
