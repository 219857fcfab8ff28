// Schedule items, the slot sets made of them, and the schedules in the settings.
//
// Input: seconds since the epoch for now, day, hours and minutes of an item; items joined
// with ';', of which the first ten are stored, too.
#include <stdio.h>
#include <string.h>

#include "fuzz/fuzz.h"
#include "ktcomm/sched.h"

using namespace kt::fuzz;

namespace {

constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf";

unsigned minute_of(int hour, int minute) { return static_cast<unsigned>(hour) * 60 + static_cast<unsigned>(minute); }

// As a composer writes it.
std::string item_text(const int (&n)[5]) {
  char text[100];
  snprintf(text, sizeof text, "%d,%02d:%02d,%02d:%02d", n[0], n[1], n[2], n[3], n[4]);
  return text;
}

// Whether the numbers make a valid item; the text ends at its 25th character.
void judge_numbers(const int (&n)[5]) {
  char text[100];
  snprintf(text, sizeof text, "%d,%d:%d,%d:%d", n[0], n[1], n[2], n[3], n[4]);
  if (strlen(text) > 25) return;
  const bool exist = n[0] >= 1 && n[0] <= 9 && n[1] >= 0 && n[1] <= 23 && n[2] >= 0 && n[2] <= 59 && n[3] >= 0 &&
                     n[3] <= 24 && n[4] >= 0 && n[4] <= (n[3] == 24 ? 0 : 59);
  const bool valid = exist && n[1] * 60 + n[2] < n[3] * 60 + n[4];
  Text item(text);
  expect_same(text, check_sche_item(item.get(), 0), valid ? 0 : 1);
}

bool covers(unsigned days, unsigned start, unsigned end, const struct tm& now) {
  const auto minute = static_cast<unsigned>(now.tm_hour * 60 + now.tm_min);
  return (days >> now.tm_wday & 1) != 0 && start <= minute && minute < end;
}

// A set and the text of its slots say the same; and what it answers.
void judge_set(SchSlotSet set, const struct tm& now) {
  std::string text;
  bool in_use = false, covered = false;
  for (const SchSlot& slot : set.slots) {
    if (slot.day_mask == 0) break;
    if (slot.start > 99 * 60 + 99 || slot.end > 99 * 60 + 99) return;  // signs make huge numbers
    const int day = event_sch_day_bit2num(static_cast<int>(slot.day_mask));
    expect_same("day mask", event_sch_day_num2bit(day), static_cast<int>(slot.day_mask));
    const auto start = static_cast<int>(slot.start), end = static_cast<int>(slot.end);
    text += item_text({day, start / 60, start % 60, end / 60, end % 60}) + ";";
    in_use = true;
    covered = covered || covers(slot.day_mask, slot.start, slot.end, now);
  }
  SchSlotSet again;
  Text items(text);
  expect_same("set of the slots' texts", set_sch_fmt(&again, set.enable, items.get()), 0);
  expect(memcmp(&again, &set, sizeof set) == 0, "the same set from the slots' texts", text);

  const bool first_minute = now.tm_hour == 0 && now.tm_min == 0;  // the answer for it is preset
  const bool active = set.enable == 0 || (!first_minute && (covered || !in_use));
  expect_same("active", chk_sch_from_mm(&set), active ? 1 : 0);
}

void judge_stored(const std::vector<std::string>& items, const struct tm& now) {
  std::string settings = "[EVENT]\n";
  bool any = false, inside = false, all_clear = true;
  for (size_t i = 0; i < items.size() && i < 10; ++i) {
    settings += "event_define" + std::to_string(i + 1) + "=" + items[i] + "\n";
    Text item(items[i]);
    int n[5] = {};
    const int read = sscanf(items[i].c_str(), "%d,%d:%d,%d:%d", &n[0], &n[1], &n[2], &n[3], &n[4]);
    any = any || !items[i].empty();
    if (items[i].empty()) continue;
    // The check takes more ways to write a number than the evaluation does.
    all_clear = all_clear && read == 5 && check_sche_item(item.get(), 0) == 0 && items[i] == item_text(n);
    if (!all_clear) continue;
    const unsigned days = n[0] >= 8 ? 0x7F : 1U << (n[0] - 1);
    inside = inside || covers(days, minute_of(n[1], n[2]), minute_of(n[3], n[4]), now);
  }
  write_file(kSettings, settings);
  const int result = schedule_chk(0);
  expect(result == 0 || result == 1, "a stored schedule applies or not", settings);
  static EvtSchRecord list;
  expect_same("stored items are read", ReadEvtSch(&list), 0);
  std::string joined;
  for (size_t i = 0; i < 10; ++i) {
    const std::string item = i < items.size() ? items[i].substr(0, 24).c_str() : "";
    expect_same("stored item", std::string(list.items[i]), item);
    joined += item.empty() ? "" : item + ";";
  }
  expect_same("joined items", std::string(list.joined), joined);
  if (all_clear) expect_same(settings.c_str(), result, inside || !any ? 1 : 0);
}

// The items up to the first ';' too many, each as a composer would write it.
std::vector<std::string> canonical(const std::string& joined) {
  std::vector<std::string> items;
  for (size_t at = 0; at < joined.size(); ++at) {
    const size_t end = std::min(joined.find_first_of(";\r\n", at), joined.size());
    items.push_back(joined.substr(at, std::min<size_t>(end - at, 25)));
    at = end;
  }
  return items;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const time_t now = static_cast<unsigned>(input.number()) % 2'000'000'000 + 1;
  const int numbers[] = {input.number(), input.number(), input.number(), input.number(), input.number()};
  Text joined(input.rest());
  struct tm local;
  gmtime_r(&now, &local);
  set_time(now);
  judge_numbers(numbers);
  write_file("/etc/def_sys.conf", "");
  judge_stored(canonical(joined.str()), local);
  Text text = joined;
  (void)check_sche_item(text.get(), 0);
  SchSlotSet set;
  if (set_sch_fmt(&set, static_cast<unsigned>(numbers[0]), joined.get()) == 0) judge_set(set, local);
  set_time(0);
  return 0;
}
