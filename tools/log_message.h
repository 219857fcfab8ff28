// log_message.h - messages of the event catalogue, with their arguments.
#ifndef KTCOMM_TOOLS_LOG_MESSAGE_H
#define KTCOMM_TOOLS_LOG_MESSAGE_H

#include <ktcomm/log.h>

#include "tools/ktctl.h"

namespace kt::tools {

// log add --message CATEGORY [--level N] NUMBER [ARGUMENT...]
int add_message(const Request& request);

// Fills `data` from the camera's settings. Returns kDone, or the exit code after it
// has said why not.
[[nodiscard]] int read_log_settings(SysLogData& data);

}  // namespace kt::tools

#endif
