// log_message.h - messages of the event catalogue, with their arguments.
#ifndef KTCOMM_TOOLS_LOG_MESSAGE_H
#define KTCOMM_TOOLS_LOG_MESSAGE_H

#include <ktcomm/log.h>
#include <stddef.h>

#include "tools/ktctl.h"

namespace kt::tools {

// An entry of 254 characters begins with ten digits of time and a blank.
inline constexpr size_t kLongestEntry = 254 - 11;

// log add --message CATEGORY [--level N] NUMBER [ARGUMENT...]
int add_message(const Request& request);

// Fills `data` from the camera's settings. Returns kDone, or the exit code after it
// has said why not.
[[nodiscard]] int read_log_settings(SysLogData& data);

// With --lock-timeout waits until no other program writes to the log; without, its
// writers give up by themselves. Returns kDone, or the exit code after it has said why
// not.
[[nodiscard]] int wait_for_log(const Request& request);

}  // namespace kt::tools

#endif
