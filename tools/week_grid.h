// week_grid.h - a week drawn in the terminal.
#ifndef KTCOMM_TOOLS_WEEK_GRID_H
#define KTCOMM_TOOLS_WEEK_GRID_H

#include "tools/week_plan.h"

namespace kt::tools {

// Prints a row a day and a cell a half-hour, with an hour scale on top and a mark
// at the minute of the week that is `now`, and what the cells mean.
void draw_week(const WeekPlan& plan, int now);

}  // namespace kt::tools

#endif
