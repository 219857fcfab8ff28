// crontab_lines.h - the lines of a crontab with a user column.
#ifndef KTCOMM_TOOLS_CRONTAB_LINES_H
#define KTCOMM_TOOLS_CRONTAB_LINES_H

#include <string_view>

#include "tools/cron_field.h"

namespace kt::tools {

// Whether a cron daemon sees no job in the line: a comment, NAME=value or blanks.
[[nodiscard]] bool is_no_job(std::string_view line);

// The columns of a job's line, as far as there are any; without checks.
struct CronColumns {
  bool linear = false;
  bool nickname = false;                 // "@daily" and the like, all of the schedule
  std::string_view fields[kCronFields];  // of a nickname the first only
  std::string_view user;
  std::string_view command;  // empty when a column is missing
};

[[nodiscard]] CronColumns split_job(std::string_view line);

}  // namespace kt::tools

#endif
