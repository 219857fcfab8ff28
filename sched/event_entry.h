// event_entry.h - the stored text of an event: doc/event-entry.md.
#ifndef KTCOMM_SCHED_EVENT_ENTRY_H
#define KTCOMM_SCHED_EVENT_ENTRY_H

#include "base/string_buffer.h"
#include "ktcomm/sched.h"

namespace kt {

constexpr size_t kEntrySize = 512;  // with the NUL
constexpr int kJpeg = 4;            // index into file_format_tab

// Keys of the elements, in the order in which they are written.
inline constexpr char kSourceKey[] = "is";
inline constexpr char kScheduleKey[] = "es";
inline constexpr char kTypeKey[] = "et";
inline constexpr char kActionsKey[] = "acts";
inline constexpr char kIntervalKey[] = "ei";
inline constexpr char kMediaKey[] = "ea";
inline constexpr char kNameKey[] = "en";

using EventName = StringBuffer<sizeof EventEntry::name - 1>;

// The name as an entry can hold it: up to a '|' or line feed.
[[nodiscard]] EventName event_name(const EventEntry& event);

// Writes the entry of `event` into `entry`, `kEntrySize` zero bytes.
void compose_event_entry(const EventEntry& event, char* entry);

// Reads `entry`, of less than `kEntrySize` characters, into a zeroed record.
void parse_event_entry(const char* entry, EventEntry& event);

}  // namespace kt

#endif
