#include "sched/stored_schedule.h"

#include "base/paths.h"
#include "base/unique_file.h"
#include "ktcomm/config.h"
#include "ktcomm/sched.h"
#include "sched/local_now.h"
#include "sched/schedule_item.h"

namespace kt {
namespace {

// Code 8 is every day here and Monday to Friday in a slot set; pages and programs
// rely on both.
bool is_inside(const ScheduleItem& item, const struct tm& now) {
  const bool today = item.day == kWorkdays || item.day == kEveryDay ||
                     item.day == static_cast<unsigned>(now.tm_wday) + 1;
  const int minute = static_cast<int>(minute_of_day(now));
  return today && static_cast<int>(item.start) <= minute && minute < static_cast<int>(item.end);
}

bool is_inside_any(const SchedulePlace& place, FILE* settings) {
  const struct tm now = local_now();
  bool any_set = false;
  for (int number = 1; number <= kStoredItems; ++number) {
    StoredItem text;
    read_stored_item(place, number, text, settings);
    if (text[0] == '\0') continue;
    if (is_inside(read_schedule_item(text), now)) return true;
    any_set = true;
  }
  return !any_set;
}

}  // namespace

int read_stored_mode(const SchedulePlace& place, FILE* settings) {
  int mode = 1;
  (void)PRO_GetInt(place.section, place.mode, &mode, settings);
  return mode;
}

void read_stored_item(const SchedulePlace& place, int number, StoredItem& item, FILE* settings) {
  item[0] = '\0';
  (void)PRO_GetStr(place.section, stored_item_key(place, number).c_str(), item, kStoredItemLength,
                   settings);
}

ItemKey stored_item_key(const SchedulePlace& place, int number) {
  ItemKey key;
  key.append_format("%s%d", place.item_prefix, number);
  return key;
}

}  // namespace kt

using namespace kt;

int schedule_chk(int type) {
  if (type != 0 && type != 1) return -1;
  const unique_file settings = open_file(paths::kSettings, "r+e");
  if (!settings.ok()) return -1;
  const SchedulePlace& place = type == 0 ? kEventSchedule : kVideoSchedule;
  const bool off = read_stored_mode(place, settings.get()) == 0;
  return off || is_inside_any(place, settings.get()) ? 1 : 0;
}
