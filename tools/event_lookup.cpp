#include "tools/event_lookup.h"

#include <string.h>

#include "base/paths.h"
#include "tools/ktctl.h"
#include "tools/number.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"

namespace kt::tools {

int read_events_locked(EventConfig& config) {
  unique_file file;
  const int unfit = open_settings(paths::kSettings, file);
  if (unfit != kDone) return unfit;
  return ReadEventConf(&config) == 0 ? kDone : fail_errno(paths::kSettings);
}

int read_events(EventConfig& config) {
  SettingsLock lock;
  lock.try_for_a_moment();
  return read_events_locked(config);
}

std::optional<int> event_number(const char* text) {
  const auto number = parse_number(text);
  return number && *number >= 1 && *number <= kEvents ? number : std::nullopt;
}

int find_event(const EventConfig& config, const char* text) {
  const auto number = event_number(text);
  if (number && in_use(config.events[*number - 1])) return *number;
  for (int i = 0; !number && i < kEvents; ++i) {
    const EventEntry& event = config.events[i];
    if (in_use(event) && strcmp(event.name, text) == 0) return i + 1;
  }
  (void)fail(kNotFound, "%s: there is no such event; see ktctl event list", text);
  return 0;
}

}  // namespace kt::tools
