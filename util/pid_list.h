// pid_list.h - lists of process ids, as pidof prints them and lock files hold them.
#ifndef KTCOMM_UTIL_PID_LIST_H
#define KTCOMM_UTIL_PID_LIST_H

#include <optional>

namespace kt {

struct PidList {
  int first = 0;       // the value of the first word, which need not be a pid
  int count = 0;       // of words above 0
  bool found = false;  // whether the pid looked for is among them

  [[nodiscard]] int first_pid() const { return count > 0 ? first : 0; }
};

// Reads a list and looks for `wanted` in it. Nothing when the file cannot be
// opened.
[[nodiscard]] std::optional<PidList> read_pid_list(const char* path, int wanted = 0);

}  // namespace kt

#endif
