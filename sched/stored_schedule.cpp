#include <stdio.h>

#include "base/paths.h"
#include "base/unique_file.h"
#include "ktcomm/config.h"
#include "ktcomm/sched.h"
#include "sched/local_now.h"
#include "sched/schedule_item.h"

namespace kt {
namespace {

constexpr int kItems = 10;
constexpr int kItemLength = 25;

// Where a schedule is stored.
struct Place {
  const char* section;
  const char* mode;
  const char* item_prefix;
};
constexpr Place kPlaces[] = {{"EVENT", "event_schedule", "event_define"},
                             {"VIDEO", "video_schedule", "video_define"}};

// Code 8 is every day here and Monday to Friday in a slot set; pages and programs
// rely on both.
bool is_inside(const ScheduleItem& item, const struct tm& now) {
  const bool today = item.day == kWorkdays || item.day == kEveryDay ||
                     item.day == static_cast<unsigned>(now.tm_wday) + 1;
  const int minute = static_cast<int>(minute_of_day(now));
  return today && static_cast<int>(item.start) <= minute && minute < static_cast<int>(item.end);
}

// Becomes the stored item `number`; false when it is missing or empty.
[[nodiscard]] bool read_item(const Place& place, int number, ScheduleItem& item, FILE* settings) {
  char key[32];
  (void)snprintf(key, sizeof key, "%s%d", place.item_prefix, number);
  char text[kItemLength + 1] = {};  // one of the full length is stored whole
  if (PRO_GetStr(place.section, key, text, kItemLength, settings) != 0 || text[0] == '\0') {
    return false;
  }
  item = read_schedule_item(text);
  return true;
}

bool is_inside_any(const Place& place, FILE* settings) {
  const struct tm now = local_now();
  bool any_set = false;
  for (int number = 1; number <= kItems; ++number) {
    ScheduleItem item;
    if (!read_item(place, number, item, settings)) continue;
    if (is_inside(item, now)) return true;
    any_set = true;
  }
  return !any_set;
}

}  // namespace
}  // namespace kt

int schedule_chk(int type) {
  if (type != 0 && type != 1) return -1;
  const kt::unique_file settings = kt::open_file(kt::paths::kSettings, "r+e");
  if (!settings.ok()) return -1;
  const kt::Place& place = kt::kPlaces[type];
  int mode = 1;
  (void)PRO_GetInt(place.section, place.mode, &mode, settings.get());  // stays 1 when missing
  return mode == 0 || kt::is_inside_any(place, settings.get()) ? 1 : 0;
}
