#include "tools/week_plan.h"

#include "tools/schedule_item.h"

namespace kt::tools {
namespace {

constexpr SchSlot kAlways = {0x7F, 0, kDayMinutes};

}  // namespace

void WeekPlan::add(const SchSlot& slot) {
  for (unsigned minute = slot.start; minute < slot.end && minute < kDayMinutes; ++minute) {
    days_[minute] = static_cast<unsigned char>(days_[minute] | slot.day_mask);
  }
}

WeekPlan::WeekPlan(const EvtSchRecord& list) {
  bool any_set = false;
  for (const auto& item : list.items) {
    if (item[0] == '\0') continue;
    add(read_plain_item(item));
    any_set = true;
  }
  if (list.mode == 0 || !any_set) add(kAlways);
}

WeekPlan::WeekPlan(const SchSlotSet& set) {
  bool any_in_use = false;
  for (const SchSlot& slot : set.slots) {
    add(slot);
    any_in_use = any_in_use || slot.day_mask != 0;
  }
  if (set.enable == 0 || !any_in_use) add(kAlways);
}

std::optional<int> WeekPlan::next(int minute, bool active) const {
  for (int step = 1; step <= kWeekMinutes; ++step) {
    const int later = (minute + step) % kWeekMinutes;
    if (is_active(later) == active) return later;
  }
  return std::nullopt;
}

int WeekPlan::count_active(int first, int last) const {
  int count = 0;
  for (int minute = first; minute <= last; ++minute) count += is_active(minute) ? 1 : 0;
  return count;
}

}  // namespace kt::tools
