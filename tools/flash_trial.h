// flash_trial.h - what a save would come to, without one.
#ifndef KTCOMM_TOOLS_FLASH_TRIAL_H
#define KTCOMM_TOOLS_FLASH_TRIAL_H

#include "tools/flash_partition.h"

namespace kt::tools {

// How many bytes the settings' directory takes packed, with the file at `path` as its
// settings; -1 when that cannot be tried in /tmp.
[[nodiscard]] long long packed_size(const char* path);

// Whether a save of an archive of this length would try to store it there.
[[nodiscard]] bool has_room(const FlashPartition& partition, long long length);

}  // namespace kt::tools

#endif
