// stored_schedule.h - where the two plain schedules stand in the settings.
#ifndef KTCOMM_SCHED_STORED_SCHEDULE_H
#define KTCOMM_SCHED_STORED_SCHEDULE_H

#include <stdio.h>

#include "base/string_buffer.h"

namespace kt {

constexpr int kStoredItems = 10;
constexpr int kStoredItemLength = 25;
using StoredItem = char[kStoredItemLength + 1];  // one of the full length is stored whole

struct SchedulePlace {
  const char* section;
  const char* mode;
  const char* item_prefix;
};
inline constexpr SchedulePlace kEventSchedule = {"EVENT", "event_schedule", "event_define"};
inline constexpr SchedulePlace kVideoSchedule = {"VIDEO", "video_schedule", "video_define"};

// 1 when it is missing.
[[nodiscard]] int read_stored_mode(const SchedulePlace& place, FILE* settings);

// Reads item `number`, 1 to 10; empty when it is missing.
void read_stored_item(const SchedulePlace& place, int number, StoredItem& item, FILE* settings);

// The key of item `number`.
using ItemKey = StringBuffer<14>;
[[nodiscard]] ItemKey stored_item_key(const SchedulePlace& place, int number);

}  // namespace kt

#endif
