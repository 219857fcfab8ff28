#include "sched/schedule_item.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/text.h"
#include "ktcomm/sched.h"

namespace kt {
namespace {

constexpr size_t kItemLength = 25;

// As atoi, and the ends of the range for numbers beyond them.
int to_number(const char* text) {
  const long number = strtol(text, nullptr, 10);
  return static_cast<int>(number > INT_MAX ? INT_MAX : number < INT_MIN ? INT_MIN : number);
}

// The five numbers of an item in order; false when a separator is missing. A
// number cannot run on into the next: each ends at its separator at the latest.
[[nodiscard]] bool split(const char* text, int (&numbers)[5]) {
  constexpr char kSeparators[] = {',', ':', ',', ':'};
  for (size_t i = 0; i < sizeof kSeparators; ++i) {
    numbers[i] = to_number(text);
    const char* const separator = strchr(text, kSeparators[i]);
    if (separator == nullptr) return false;
    text = separator + 1;
  }
  numbers[4] = to_number(text);
  return true;
}

// True for a number from 0 to `high`.
bool is_up_to(int number, int high) {
  return SCHDCheckRange(number, 0, high) == 0;
}

}  // namespace

ScheduleItem read_schedule_item(const char* text) {
  unsigned day = 0;
  unsigned time[4] = {};
  (void)sscanf(text, "%1u,%2u:%2u,%2u:%2u", &day, &time[0], &time[1], &time[2], &time[3]);
  return {day, time[0] * 60 + time[1], time[2] * 60 + time[3]};
}

unsigned day_mask(unsigned day) {
  switch (day) {
    case kEveryDay:
      return 0x7F;
    case kWorkdays:
      return 0x3E;
    default:
      return day >= 1 && day < kWorkdays ? 1U << (day - 1) : 0;
  }
}

}  // namespace kt

int check_sche_item(const char* item, unsigned empty_allowed) {
  enum : int { kValid = 0, kInvalid = 1 };
  if (item == nullptr) return kInvalid;
  if (item[0] == '\0') return empty_allowed > 0 ? kValid : kInvalid;

  char text[kt::kItemLength + 1];
  kt::copy_cut(text, sizeof text, {item, strnlen(item, kt::kItemLength)});
  int numbers[5];
  if (!kt::split(text, numbers)) return kInvalid;

  const auto [day, start_hour, start_minute, end_hour, end_minute] = numbers;
  const bool exists = SCHDCheckRange(day, 1, kt::kEveryDay) == 0 && kt::is_up_to(start_hour, 23) &&
                      kt::is_up_to(start_minute, 59) && kt::is_up_to(end_hour, 24) &&
                      kt::is_up_to(end_minute, end_hour == 24 ? 0 : 59);
  const bool forward =
      start_hour < end_hour || (start_hour == end_hour && start_minute < end_minute);
  return exists && forward ? kValid : kInvalid;
}
