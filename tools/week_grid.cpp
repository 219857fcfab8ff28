#include "tools/week_grid.h"

#include <stdio.h>

#include "tools/schedule_item.h"

namespace kt::tools {
namespace {

constexpr int kCellMinutes = 30;
constexpr int kCells = kDayMinutes / kCellMinutes;

char cell(const WeekPlan& plan, int first, int now) {
  const int last = first + kCellMinutes - 1;
  if (first <= now && now <= last) return plan.is_active(now) ? '@' : 'o';
  const int active = plan.count_active(first, last);
  return active == 0 ? '.' : active == kCellMinutes ? '#' : '+';
}

}  // namespace

void draw_week(const WeekPlan& plan, int now) {
  (void)printf("     ");
  for (int hour = 0; hour <= 24; hour += 2) (void)printf(hour < 24 ? "%02d  " : "%02d\n", hour);
  for (int day = 0; day < 7; ++day) {
    char row[kCells + 1] = {};
    for (int i = 0; i < kCells; ++i) {
      row[i] = cell(plan, day * kDayMinutes + i * kCellMinutes, now);
    }
    (void)printf("%s |%s|\n", day_name(day), row);
  }
  (void)printf("     # active  + partly  . inactive  %s\n",
               plan.is_active(now) ? "@ now, active" : "o now, inactive");
}

}  // namespace kt::tools
