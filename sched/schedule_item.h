// schedule_item.h - what the text of a schedule item says.
#ifndef KTCOMM_SCHED_SCHEDULE_ITEM_H
#define KTCOMM_SCHED_SCHEDULE_ITEM_H

namespace kt {

enum : unsigned { kWorkdays = 8, kEveryDay = 9 };  // day codes beyond the single days

struct ScheduleItem {
  unsigned day;    // a day code
  unsigned start;  // minute of the day
  unsigned end;    // minute of the day, exclusive
};

// Reads "day,HH:MM,HH:MM" as far as it goes; what is missing is 0. The numbers
// are not checked: a sign in place of a first digit makes huge ones.
[[nodiscard]] ScheduleItem read_schedule_item(const char* text);

// The weekdays of a day code, bit 0 being Sunday; 0 for any other code.
[[nodiscard]] unsigned day_mask(unsigned day);

}  // namespace kt

#endif
