#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "base/text.h"
#include "sched/event_entry.h"
#include "sched/schedule_item.h"

namespace kt {
namespace {

SchSlot read_slot(const char* item) {
  int day = 0;
  int time[4] = {};
  (void)sscanf(item, "%d,%d:%d,%d:%d", &day, &time[0], &time[1], &time[2], &time[3]);
  const auto minute = [](int hours, int minutes) {
    return static_cast<unsigned>(hours) * 60 + static_cast<unsigned>(minutes);
  };
  return {day_mask(static_cast<unsigned>(day)), minute(time[0], time[1]), minute(time[2], time[3])};
}

// "STATE,ITEM;ITEM..."; the state is one digit: 0 on, 1 on with its schedule, 2 off,
// 3 off with its schedule. The value is cut up.
void read_schedule(char* value, EventEntry& event) {
  const auto state = static_cast<unsigned>(atoi(value));
  event.enabled = state <= 1 ? 1 : 0;
  event.schedule.enable = (state & ~2U) != 0 ? 1 : 0;
  if (strlen(value) < 2) return;

  char* rest = nullptr;
  const char* item = strtok_r(value + 2, ";", &rest);
  for (SchSlot& slot : event.schedule.slots) {
    if (item == nullptr) return;
    slot = read_slot(item);
    item = strtok_r(nullptr, ";", &rest);
  }
}

// The bit that "NAME:1" sets. "smbc_rec:1" begins with "smbc" too, but what follows
// that and one character is no number.
unsigned read_action(const char* token) {
  unsigned bit = 1;
  for (const char* const name : event_action_tab) {
    const size_t length = strlen(name);
    const bool named = strncmp(token, name, length) == 0 && token[length] != '\0';
    if (named && atoi(token + length + 1) != 0) return bit;
    bit <<= 1;
  }
  return 0;
}

// "NAME:1;NAME:0..."; the value is cut up.
unsigned read_actions(char* value) {
  unsigned actions = 0;
  char* rest = nullptr;
  for (const char* token = strtok_r(value, ";", &rest); token != nullptr;
       token = strtok_r(nullptr, ";", &rest)) {
    actions |= read_action(token);
  }
  return actions;
}

// The first format whose name, in any case, `word` begins with; 0 when none does.
int read_format(const char* word) {
  int index = 0;
  for (const char* const name : file_format_tab) {
    if (strncasecmp(word, name, strlen(name)) == 0) return index;
    ++index;
  }
  return 0;
}

// "FORMAT,NUMBER,NUMBER,NUMBER". Of "jpg:7" the 7 is not read
// back: the frame rate is that of all events.
void read_media(const char* value, EventEntry& event) {
  (void)sscanf(value, "%*[^,],%d,%d,%d", &event.rec1, &event.rec2, &event.rec3);
  event.format = read_format(value);
  event.is_jpeg = event.format == kJpeg ? 1 : 0;
}

}  // namespace

void parse_event_entry(const char* entry, EventEntry& event) {
  char value[kEntrySize];  // any element of the entry fits
  const auto has = [&](const char* key) {
    return get_element_from_event_entry(entry, key, value) == 0;
  };
  if (has(kSourceKey)) event.input_source = event.input_source_copy = atoi(value);
  if (has(kScheduleKey)) read_schedule(value, event);
  if (has(kTypeKey)) event.type = atoi(value);
  if (has(kActionsKey)) event.actions = read_actions(value);
  if (has(kIntervalKey)) event.interval = atoi(value);
  if (has(kMediaKey)) read_media(value, event);
  if (has(kNameKey)) copy_cut(event.name, sizeof event.name, value);
}

}  // namespace kt
