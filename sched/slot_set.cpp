#include <stddef.h>
#include <string.h>

#include "ktcomm/sched.h"
#include "sched/local_now.h"
#include "sched/schedule_item.h"

static_assert(offsetof(SchSlot, day_mask) == 0 && offsetof(SchSlot, start) == 4 &&
              offsetof(SchSlot, end) == 8 && sizeof(SchSlot) == 12);
static_assert(offsetof(SchSlotSet, enable) == 0 && offsetof(SchSlotSet, last_minute) == 4 &&
              offsetof(SchSlotSet, last_result) == 8 && offsetof(SchSlotSet, slots) == 12 &&
              sizeof(SchSlotSet) == 132);

namespace kt {
namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Cuts the first item off a list joined with ';'; null for an empty item.
const char* take_item(char*& list) {
  char* const item = list;
  list += strcspn(list, ";");
  if (*list != '\0') *list++ = '\0';
  return *item != '\0' ? item : nullptr;
}

// Tells whether the slots make the set active at `now`.
bool is_active(const SchSlotSet& set, const struct tm& now) {
  const unsigned minute = minute_of_day(now);
  bool any_in_use = false;
  for (const SchSlot& slot : set.slots) {
    const bool today = (slot.day_mask >> now.tm_wday & 1) != 0;
    if (today && slot.start <= minute && minute < slot.end) return true;
    any_in_use = any_in_use || slot.day_mask != 0;
  }
  return !any_in_use;
}

}  // namespace
}  // namespace kt

using namespace kt;

int set_sch_fmt(SchSlotSet* set, unsigned enable, char* items) {
  if (set == nullptr || items == nullptr) return 1;
  *set = {};  // with "not active" as the answer for 00:00
  set->enable = enable;
  while (*items != '\0' && !is_digit(*items)) ++items;
  for (SchSlot& slot : set->slots) {
    const char* const text = take_item(items);
    if (text == nullptr) break;
    const ScheduleItem item = read_schedule_item(text);
    const unsigned days = day_mask(item.day);
    if (days == 0) break;
    slot = {days, item.start, item.end};
  }
  return 0;
}

int chk_sch_from_mm(SchSlotSet* set) {
  if (set == nullptr) return 0;
  if (set->enable == 0) return 1;
  const struct tm now = local_now();
  // One answer a minute, known by the minute of the day alone: asked for a day
  // later, and no other minute in between, it still stands.
  if (minute_of_day(now) != set->last_minute) {
    set->last_minute = minute_of_day(now);
    set->last_result = is_active(*set, now) ? 1 : 0;
  }
  return static_cast<int>(set->last_result);
}
