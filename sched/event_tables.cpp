#include "ktcomm/sched.h"
#include "sched/schedule_item.h"

const char event_action_tab[14][16] = {"op1",   "op2",      "email",    "ftpu",  "im",
                                       "httpn", "httppost", "wlled",    "smbc",  "sd",
                                       "op3",   "op4",      "smbc_rec", "sd_rec"};
const char file_format_tab[7][5] = {"asf", "mp4", "3gp", "avi", "jpg", "flv", "swf"};

int event_sch_day_num2bit(int day) {
  return static_cast<int>(kt::day_mask(static_cast<unsigned>(day)));
}

int event_sch_day_bit2num(int mask) {
  for (int day = kt::kEveryDay; day > 0; --day) {
    if (event_sch_day_num2bit(day) == mask) return day;
  }
  return 0;
}
