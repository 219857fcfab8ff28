// crontab_line.h - what a line of the crontab is made of.
#ifndef KTCOMM_SCHED_CRONTAB_LINE_H
#define KTCOMM_SCHED_CRONTAB_LINE_H

#include <stddef.h>

#include <string_view>

#include "ktcomm/sched.h"

namespace kt {

// The line of a record that is valid, with its line feed.
class CrontabLine {
 public:
  CrontabLine(const SchdEntry& entry, int linear) {
    (void)SCHDConvtUserFormat(&entry, text_, sizeof text_ - 1, linear);  // the size is enough
  }
  [[nodiscard]] std::string_view view() const { return text_; }

 private:
  char text_[181] = {};
};

// What follows the `n`-th blank of `line`; empty when that is nothing.
[[nodiscard]] std::string_view after_blanks(std::string_view line, size_t n);

}  // namespace kt

#endif
