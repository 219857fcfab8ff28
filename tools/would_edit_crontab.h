// would_edit_crontab.h - what --dry-run says of the crontab.
#ifndef KTCOMM_TOOLS_WOULD_EDIT_CRONTAB_H
#define KTCOMM_TOOLS_WOULD_EDIT_CRONTAB_H

#include <string_view>

namespace kt::tools {

// One edit, lines without their line feeds: takes out the lines that are `line`, or
// those that run `command`, then puts `added` at the end. What is not wanted is empty.
struct CrontabEdit {
  std::string_view line;
  std::string_view command;
  std::string_view added;
};

// Says of each line what would become of it, and counts those in `told`. Returns kDone,
// or the exit code after it has said that the crontab cannot be read.
[[nodiscard]] int tell_crontab_edit(const CrontabEdit& edit, int& told);

}  // namespace kt::tools

#endif
