// event_commands.cpp - look at the camera's events and change them.
#include <errno.h>
#include <ktcomm/sched.h>
#include <ktcomm/util_process.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "base/paths.h"
#include "tools/event_form.h"
#include "tools/event_lookup.h"
#include "tools/fields.h"
#include "tools/ktctl.h"
#include "tools/plain_text.h"
#include "tools/schedule_item.h"
#include "tools/settings_changes.h"
#include "tools/settings_lock.h"
#include "tools/settings_write.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

constexpr char kSection[] = "EVENT";
constexpr char kTrigger[] = "event_trigger";
constexpr char kJpegFps[] = "event_jpeg_fps";

using Key = StringBuffer<14>;

Key entry_key(int number) {
  Key key;
  key.append_format("event%d_entry", number);
  return key;
}

int would_store(const Change& change) {
  if (!check_assignment(paths::kSettings, change.section, change.key, change.value)) {
    return kRefused;
  }
  const int code = wait_until_unlocked();
  return code == kDone ? tell_changes(paths::kSettings, {&change, 1}) : code;
}

int store(const Request& request, const char* key, const char* value) {
  const Section section(kSection);
  if (request.dry_run()) return would_store({section, key, value});
  return store_value(paths::kSettings, section, key, value);
}

// ---- Listing --------------------------------------------------------------

// The first item, and how many there are more.
StringBuffer<48> schedule_summary(const EventEntry& event) {
  StringBuffer<48> text;
  int more = -1;
  for (const SchSlot& slot : event.schedule.slots) {
    if (slot.day_mask == 0 || !has_schedule(event)) continue;
    if (text.size() == 0) text.append(item_meaning(slot).view());
    ++more;
  }
  if (more < 0) text.append("always");
  if (more > 0) text.append_format(" +%d", more);
  return text;
}

struct Widths {
  int name = sizeof "NAME" - 1;
  int schedule = sizeof "SCHEDULE" - 1;
};

void widen(int& width, size_t length) {
  if (static_cast<int>(length) > width) width = static_cast<int>(length);
}

Widths widths_of(const EventConfig& config) {
  Widths widths;
  for (const EventEntry& event : config.events) {
    if (!in_use(event)) continue;
    widen(widths.name, strlen(event.name));
    widen(widths.schedule, schedule_summary(event).size());
  }
  return widths;
}

void print_row(int number, const EventEntry& event, const Widths& widths) {
  const EventForm form = form_of(event);
  (void)printf("%2d  ", number);
  print_plain(event.name);
  (void)printf("%*s  %-7s  %4d  %6d  %-*s  %s\n",
               widths.name - static_cast<int>(strlen(event.name)), "",
               event.enabled != 0 ? "yes" : "no", event.type, event.input_source, widths.schedule,
               schedule_summary(event).c_str(), form.actions[0] != '\0' ? form.actions : "-");
}

void list_for_people(const EventConfig& config) {
  const Widths widths = widths_of(config);
  (void)printf("NO  %-*s  ENABLED  TYPE  SOURCE  %-*s  ACTIONS\n", widths.name, "NAME",
               widths.schedule, "SCHEDULE");
  int number = 0;
  for (const EventEntry& event : config.events) {
    ++number;
    if (in_use(event)) print_row(number, event, widths);
  }
  if (config.trigger == 0) (void)printf("all events are off: event settings trigger=1\n");
}

void list_for_programs(const EventConfig& config, const Request& request) {
  Printer printer(request);
  printer.flag("trigger", config.trigger != 0);
  printer.begin_list("events");
  int number = 0;
  for (const EventEntry& event : config.events) {
    ++number;
    if (!in_use(event)) continue;
    printer.begin_object(nullptr);
    printer.number("number", number);
    print_form(printer, form_of(event));
    printer.end_object();
  }
  printer.end_list();
}

// ---- Changing -------------------------------------------------------------

int check_unique(const EventConfig& config, int number, const char* name) {
  for (int other = 1; other <= kEvents; ++other) {
    if (other == number || strcmp(config.events[other - 1].name, name) != 0) continue;
    return fail(kRefused, "name: %s: event %d has this name", name, other);
  }
  return kDone;
}

// Reads all events and the stored text of one's entry. Only with the lock is it sure
// that no other writer is half-way: what is read becomes a part of what is written.
int read_to_change(int number, EventConfig& config, Value& entry) {
  SettingsLock lock;
  if (const int code = lock.wait(); code != kDone) return code;
  const int unread = read_events_locked(config);
  if (unread != kDone || !in_use(config.events[number - 1])) return unread;
  const unique_file file = open_file(paths::kSettings, "re");
  const bool read =
      file.ok() && read_value(Section(kSection), entry_key(number).c_str(), file.get(), entry);
  return read ? kDone : fail_errno(paths::kSettings);
}

// ---- Settings of all events -------------------------------------------------

struct EventSettings {
  int trigger;
  int jpeg_fps;
};

constexpr Field kSettingsFields[] = {
    flag_field("trigger", offsetof(EventSettings, trigger)),
    number_field("jpeg_fps", offsetof(EventSettings, jpeg_fps), 1, 100)};

int store_number(const char* key, int number) {
  StringBuffer<11> text;
  text.append_format("%d", number);
  return store_value(paths::kSettings, Section(kSection), key, text.c_str());
}

}  // namespace

int list_events(const Request& request) {
  EventConfig config;
  const int unread = read_events(config);
  if (unread != kDone) return unread;
  if (request.for_programs()) {
    list_for_programs(config, request);
  } else {
    list_for_people(config);
  }
  return kDone;
}

int show_event(const Request& request) {
  EventConfig config;
  const int unread = read_events(config);
  if (unread != kDone) return unread;
  const int number = find_event(config, request.arguments[0]);
  if (number == 0) return kNotFound;
  Printer printer(request);
  if (!printer.plain()) printer.number("number", number);
  print_form(printer, form_of(config.events[number - 1]));
  return kDone;
}

// Only the entry of this one event is written, and of that only the elements asked
// for: whatever others keep there stays as they wrote it.
int set_event(const Request& request) {
  const auto number = event_number(request.arguments[0]);
  if (!number) return fail(kUsage, "%s: NUMBER is 1 to %d", request.arguments[0], kEvents);
  EventConfig config;
  Value stored;
  const int unread = read_to_change(*number, config, stored);
  if (unread != kDone) return unread;
  const EventEntry& event = config.events[*number - 1];
  const EventForm before = in_use(event) ? form_of(event) : EventForm();
  EventForm form = before;
  const std::span assignments(request.arguments + 1, static_cast<size_t>(request.count - 1));
  int refused = set_fields(event_fields(), assignments, &form);
  if (refused == kDone) refused = tidy_form(before, form);
  if (refused == kDone) refused = check_unique(config, *number, form.name);
  if (refused != kDone) return refused;
  const Entry entry = in_use(event) ? update_entry(stored.text, before, form, config.jpeg_fps)
                                    : new_entry(form, config.jpeg_fps);
  return store(request, entry_key(*number).c_str(), entry.c_str());
}

int remove_event(const Request& request) {
  EventConfig config;
  const int unread = read_events(config);
  if (unread != kDone) return unread;
  const int number = find_event(config, request.arguments[0]);
  return number != 0 ? store(request, entry_key(number).c_str(), "") : kNotFound;
}

int event_settings(const Request& request) {
  EventConfig config;
  int code = request.count != 0 ? wait_until_unlocked() : kDone;
  if (code == kDone) code = read_events(config);
  if (code != kDone) return code;
  const EventSettings before = {config.trigger != 0 ? 1 : 0, config.jpeg_fps};
  EventSettings after = before;
  const std::span assignments(request.arguments, static_cast<size_t>(request.count));
  if (assignments.empty()) {
    print_fields(request, kSettingsFields, &before);
    return kDone;
  }
  code = set_fields(kSettingsFields, assignments, &after);
  if (code != kDone) return code;
  if (request.dry_run()) return would_set("[EVENT]", kSettingsFields, &before, &after);
  const Uninterrupted uninterrupted;  // over both writes
  if (after.trigger != before.trigger) code = store_number(kTrigger, after.trigger);
  if (code == kDone && after.jpeg_fps != before.jpeg_fps) {
    code = store_number(kJpegFps, after.jpeg_fps);
  }
  return code;
}

int reload_events(const Request& request) {
  const int pid = GetAppsPidBySpecFile("hydra", paths::kHydraLock);
  // The file may name one that has ended.
  if (pid < 1 || (::kill(pid, 0) != 0 && errno == ESRCH)) {
    return fail(kNotFound, "there is no event daemon to read the events again");
  }
  if (request.dry_run()) return would("let process %d read the events again", pid);
  if (RestartEvent() == 0) return kDone;
  return fail(kSystemError, "the event daemon, process %d, could not be told", pid);
}

}  // namespace kt::tools
