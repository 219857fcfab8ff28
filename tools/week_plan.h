// week_plan.h - a schedule as the minutes of a week.
#ifndef KTCOMM_TOOLS_WEEK_PLAN_H
#define KTCOMM_TOOLS_WEEK_PLAN_H

#include <ktcomm/sched.h>

#include <optional>

namespace kt::tools {

constexpr int kDayMinutes = 24 * 60;
constexpr int kWeekMinutes = 7 * kDayMinutes;

// The active minutes of a week, which begins on Sunday at 00:00 with minute 0.
class WeekPlan {
 public:
  WeekPlan() = default;

  // What schedule_chk goes by, and what chk_sch_from_mm does.
  explicit WeekPlan(const EvtSchRecord& list);
  explicit WeekPlan(const SchSlotSet& set);

  [[nodiscard]] bool is_active(int minute) const {
    return (days_[minute % kDayMinutes] >> minute / kDayMinutes & 1) != 0;
  }

  // The first minute after `minute` that is active, or inactive, searched once
  // round the week.
  [[nodiscard]] std::optional<int> next(int minute, bool active) const;

  // How many of the minutes from `first` to `last` are active.
  [[nodiscard]] int count_active(int first, int last) const;

 private:
  void add(const SchSlot& slot);

  unsigned char days_[kDayMinutes] = {};  // for each minute of the day; bit 0 is Sunday
};

}  // namespace kt::tools

#endif
