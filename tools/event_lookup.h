// event_lookup.h - the events of the camera, by number or name.
#ifndef KTCOMM_TOOLS_EVENT_LOOKUP_H
#define KTCOMM_TOOLS_EVENT_LOOKUP_H

#include <ktcomm/sched.h>

#include <optional>

namespace kt::tools {

constexpr int kEvents = sizeof EventConfig::events / sizeof(EventEntry);

[[nodiscard]] inline bool in_use(const EventEntry& event) {
  return event.name[0] != '\0';
}

// Read all events; the first for those who hold the settings lock. Return kDone, or
// the exit code after they have said why not.
[[nodiscard]] int read_events_locked(EventConfig& config);
[[nodiscard]] int read_events(EventConfig& config);

// The number, 1 to 10, that `text` is, whether or not there is such an event.
[[nodiscard]] std::optional<int> event_number(const char* text);

// Finds the event that `text` means, a number or else a name. Returns its number, 1
// to 10; 0 after it has said that there is none.
[[nodiscard]] int find_event(const EventConfig& config, const char* text);

}  // namespace kt::tools

#endif
