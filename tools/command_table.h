// command_table.h - every command of ktctl: its name, arguments and help.
#ifndef KTCOMM_TOOLS_COMMAND_TABLE_H
#define KTCOMM_TOOLS_COMMAND_TABLE_H

#include <span>

#include "tools/ktctl.h"

namespace kt::tools {

struct Command {
  const char* name;  // one word, or a group's and a command's with a blank between
  const char* arguments;
  const char* summary;
  int (*run)(const Request&);
  int fewest;
  int most;
  unsigned options;
  const char* details;
  bool output_may_get_lost = false;  // what it does counts, not what it says of it
};

// The commands of a group stand together.
std::span<const Command> all_commands();

}  // namespace kt::tools

#endif
