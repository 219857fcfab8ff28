// settings_changes.h - any number of values set by one rewrite of the file.
#ifndef KTCOMM_TOOLS_SETTINGS_CHANGES_H
#define KTCOMM_TOOLS_SETTINGS_CHANGES_H

#include <span>

#include "tools/settings_input.h"

namespace kt::tools {

// What check_assignment has let pass.
struct Change {
  Section section;
  const char* key;
  const char* value;
};

// Whether the file at `path`, which need not be there yet, may be written to: kDone,
// or the exit code after it has said why not.
[[nodiscard]] int check_target(const char* path);

// Both return kDone, or the exit code after they have said what is wrong.

// Makes of the file what PRO_SetStr, called for one change after the other, would:
// under one lock, by a new file that takes its place, and with one sync. Without
// success the file is as it was.
[[nodiscard]] int write_changes(const char* path, std::span<const Change> changes);

// Says what that would change.
[[nodiscard]] int tell_changes(const char* path, std::span<const Change> changes);

}  // namespace kt::tools

#endif
