// crontab_lines.h - the lines of a crontab with a user column.
#ifndef KTCOMM_TOOLS_CRONTAB_LINES_H
#define KTCOMM_TOOLS_CRONTAB_LINES_H

#include <stdio.h>

#include <string_view>

#include "base/unique_malloc.h"
#include "tools/cron_field.h"

namespace kt::tools {

// Reads a stream line by line, of any length and with any bytes.
class LineSource {
 public:
  explicit LineSource(FILE* stream) : stream_(stream) {}

  // The next line; false at the end and when it cannot be read.
  [[nodiscard]] bool next();

  [[nodiscard]] int number() const { return number_; }           // from 1
  [[nodiscard]] std::string_view line() const { return line_; }  // without line feed
  [[nodiscard]] bool finished() const { return finished_; }      // it had one

 private:
  FILE* stream_;
  unique_malloc<char> buffer_;
  size_t size_ = 0;
  std::string_view line_;
  bool finished_ = true;
  int number_ = 0;
};

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
