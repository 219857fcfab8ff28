#include "tools/schedule_item.h"

#include <stdlib.h>
#include <string.h>

#include "base/text.h"

namespace kt::tools {
namespace {

constexpr size_t kLength = 25;  // no more of an item counts
constexpr unsigned kWorkdays = 0x3E;
constexpr unsigned kEveryDay = 0x7F;

struct Numbers {
  long day, start_hour, start_minute, end_hour, end_minute;

  [[nodiscard]] long start() const { return start_hour * 60 + start_minute; }
  [[nodiscard]] long end() const { return end_hour * 60 + end_minute; }
};

// False when a separator is missing. Each number counts as far as its digits go.
[[nodiscard]] bool split(const char* item, Numbers& numbers) {
  char text[kLength + 1];
  copy_cut(text, sizeof text, {item, strnlen(item, kLength)});
  constexpr char kSeparators[] = {',', ':', ',', ':'};
  long found[5];
  const char* rest = text;
  for (size_t i = 0; i < sizeof kSeparators; ++i) {
    found[i] = strtol(rest, nullptr, 10);
    rest = strchr(rest, kSeparators[i]);
    if (rest == nullptr) return false;
    ++rest;
  }
  found[4] = strtol(rest, nullptr, 10);
  numbers = {found[0], found[1], found[2], found[3], found[4]};
  return true;
}

bool is_within(long number, long low, long high) {
  return low <= number && number <= high;
}

const char* what_is_wrong(const char* item) {
  Numbers n;
  if (item[0] == '\0') return "it is empty";
  if (strlen(item) > kLength) return "it has more than 25 characters";
  if (!split(item, n)) return "DAY,HH:MM,HH:MM is wanted";
  if (!is_within(n.day, 1, 9)) return "the day is not 1 to 9";
  if (!is_within(n.start_hour, 0, 23) || !is_within(n.start_minute, 0, 59)) {
    return "the start is no time from 00:00 to 23:59";
  }
  if (!is_within(n.end_hour, 0, 24) || !is_within(n.end_minute, 0, n.end_hour == 24 ? 0 : 59)) {
    return "the end is no time from 00:00 to 24:00";
  }
  if (n.end() <= n.start()) return "the end is not after the start";
  return "it is no schedule item";
}

const char* days_name(unsigned days) {
  if (days == kEveryDay) return "daily";
  if (days == kWorkdays) return "Mon-Fri";
  for (int day = 0; day < 7; ++day) {
    if (days == 1U << day) return day_name(day);
  }
  return "no day";
}

}  // namespace

const char* read_item(const char* item, SchSlot& slot) {
  Numbers n;
  if (check_sche_item(item, 0) != 0 || !split(item, n)) return what_is_wrong(item);
  slot = {static_cast<unsigned>(event_sch_day_num2bit(static_cast<int>(n.day))),
          static_cast<unsigned>(n.start()), static_cast<unsigned>(n.end())};
  return nullptr;
}

SchSlot read_plain_item(const char* item) {
  unsigned day = 0;
  unsigned time[4] = {};
  (void)sscanf(item, "%1u,%2u:%2u,%2u:%2u", &day, &time[0], &time[1], &time[2], &time[3]);
  // There 8 is every day, and a time before 00:00 is one.
  const auto minute = [](unsigned hours, unsigned minutes) {
    const auto signed_minute = static_cast<int>(hours * 60 + minutes);
    return static_cast<unsigned>(signed_minute < 0 ? 0 : signed_minute);
  };
  return {static_cast<unsigned>(event_sch_day_num2bit(day == 8 ? 9 : static_cast<int>(day))),
          minute(time[0], time[1]), minute(time[2], time[3])};
}

ItemText item_text(const SchSlot& slot) {
  ItemText text;
  text.append_format("%d,%02u:%02u,%02u:%02u",
                     event_sch_day_bit2num(static_cast<int>(slot.day_mask)), slot.start / 60,
                     slot.start % 60, slot.end / 60, slot.end % 60);
  return text;
}

ItemText item_meaning(const SchSlot& slot) {
  ItemText text;
  if (slot.day_mask == 0 || slot.end <= slot.start) {
    text.append("never");
    return text;
  }
  text.append_format("%s %02u:%02u-%02u:%02u", days_name(slot.day_mask), slot.start / 60,
                     slot.start % 60, slot.end / 60, slot.end % 60);
  return text;
}

const char* day_name(int day) {
  constexpr const char* kNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  return kNames[day];
}

}  // namespace kt::tools
