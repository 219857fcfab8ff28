// cron_field.h - the five time fields of a crontab line.
#ifndef KTCOMM_TOOLS_CRON_FIELD_H
#define KTCOMM_TOOLS_CRON_FIELD_H

#include <stddef.h>

#include <string_view>

#include "base/string_buffer.h"

namespace kt::tools {

struct CronField {
  const char* name;
  int lowest;
  int highest;
  const char* words;  // for its numbers, from the lowest on, three letters each
};

constexpr size_t kCronFields = 5;
extern const CronField kCronField[kCronFields];  // in the order of the columns

// One "*", "N" or "N-M" with or without "/S"; -1 for what is not given.
struct CronRange {
  int start = -1;
  int end = -1;
  int step = -1;
};

using Reason = StringBuffer<159>;

// How much of a word a reason shows: room is left for what is wrong with it.
constexpr int shown_length(std::string_view word) {
  return word.size() < 40 ? static_cast<int>(word.size()) : 40;
}

// Reads one element of a field, numbers or words. False, with the reason told, for
// any other text and for what lies out of the field.
[[nodiscard]] bool parse_range(const CronField& field, std::string_view text, CronRange& range,
                               Reason& reason);

}  // namespace kt::tools

#endif
