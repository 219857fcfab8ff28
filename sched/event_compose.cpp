#include <string.h>

#include <algorithm>

#include "base/string_buffer.h"
#include "sched/event_entry.h"

namespace kt {
namespace {

constexpr size_t kSlots = sizeof SchSlotSet::slots / sizeof(SchSlot);
constexpr int kFormats = sizeof file_format_tab / sizeof file_format_tab[0];

// The longest texts. An item is one of 25 bytes with its NUL; a time of day takes
// 13 characters, and anything else in a slot may lose its end.
constexpr size_t kNumberLength = sizeof "-2147483648" - 1;
constexpr size_t kItemLength = 24;
constexpr size_t kScheduleLength = 2 + kSlots * kItemLength + (kSlots - 1);
constexpr size_t kActionsLength = 102;  // as long as event_action_tab makes it
constexpr size_t kMediaLength = sizeof "jpg:,,," - 1 + 4 * kNumberLength;
static_assert(sizeof "event10_entry=is=|es=|et=|acts=|ei=|ea=|en=" - 1 + 3 * kNumberLength +
                      kScheduleLength + kActionsLength + kMediaLength + sizeof EventEntry::name -
                      1 <=
                  kEntrySize - 1,
              "the longest entry fits a line of the settings, key included");

using ItemText = StringBuffer<kItemLength>;
using ScheduleText = StringBuffer<kScheduleLength>;
using ActionsText = StringBuffer<kActionsLength>;
using MediaText = StringBuffer<kMediaLength>;

ItemText item_text(const SchSlot& slot) {
  ItemText text;
  text.append_format("%d,%02u:%02u,%02u:%02u",
                     event_sch_day_bit2num(static_cast<int>(slot.day_mask)), slot.start / 60,
                     slot.start % 60, slot.end / 60, slot.end % 60);
  return text;
}

// An event that is off forgets whether its schedule was on: it has one state only.
ScheduleText schedule_text(const EventEntry& event) {
  ScheduleText text;
  text.append(event.enabled == 0 ? "2," : event.schedule.enable == 1 ? "1," : "0,");
  const char* separator = "";
  for (const SchSlot& slot : event.schedule.slots) {
    if (slot.day_mask == 0) break;
    text.append(separator);
    text.append(item_text(slot).view());
    separator = ";";
  }
  return text;
}

ActionsText actions_text(unsigned actions) {
  ActionsText text;
  const char* separator = "";
  for (const char* const name : event_action_tab) {
    text.append_format("%s%s:%u", separator, name, actions & 1);
    separator = ";";
    actions >>= 1;
  }
  return text;
}

MediaText media_text(const EventEntry& event) {
  const bool known = event.format >= 0 && event.format < kFormats;
  MediaText text;
  text.append(file_format_tab[known ? event.format : 0]);
  if (event.format == kJpeg) text.append_format(":%d", event.jpeg_fps);
  text.append_format(",%d,%d,%d", event.rec1, event.rec2, event.rec3);
  return text;
}

void add_text(char* entry, const char* key, const char* value) {
  (void)add_element_to_event_entry(entry, key, value);  // none of them is null
}

void add_number(char* entry, const char* key, int value) {
  StringBuffer<kNumberLength> text;
  text.append_format("%d", value);
  add_text(entry, key, text.c_str());
}

}  // namespace

EventName event_name(const EventEntry& event) {
  const std::string_view text(event.name, strnlen(event.name, sizeof event.name));
  EventName name;
  name.append({text.data(), std::min(text.size(), text.find_first_of("|\n"))});
  return name;
}

void compose_event_entry(const EventEntry& event, char* entry) {
  add_number(entry, kSourceKey, event.input_source);
  add_text(entry, kScheduleKey, schedule_text(event).c_str());
  add_number(entry, kTypeKey, event.type);
  add_text(entry, kActionsKey, actions_text(event.actions).c_str());
  add_number(entry, kIntervalKey, event.interval);
  add_text(entry, kMediaKey, media_text(event).c_str());
  add_text(entry, kNameKey, event_name(event).c_str());
}

}  // namespace kt
