// event_form.h - an event as NAME=VALUE fields, and the entry that stores it.
#ifndef KTCOMM_TOOLS_EVENT_FORM_H
#define KTCOMM_TOOLS_EVENT_FORM_H

#include <ktcomm/sched.h>

#include <span>

#include "base/string_buffer.h"
#include "tools/fields.h"

namespace kt::tools {

struct EventForm {
  char name[sizeof EventEntry::name] = "";
  int enabled = 1;
  int type = 0;
  int source = 0;
  int interval = 0;
  char actions[128] = "";  // names joined with ','
  char format[8] = "asf";
  int rec1 = 0;
  int rec2 = 0;
  int rec3 = 0;
  char schedule[260] = "off";  // or items joined with ';'
};

[[nodiscard]] std::span<const Field> event_fields();

[[nodiscard]] EventForm form_of(const EventEntry& event);

// Prints the fields; for programs the actions and the items of the schedule as lists,
// of which the latter is empty for one that is off.
void print_form(Printer& printer, const EventForm& form);

// Whether the slots of an event count: those that an event holds while it is off do,
// although such an event no longer knows whether its schedule was on.
[[nodiscard]] bool has_schedule(const EventEntry& event);

// Checks what differs from `before` and brings it into the form in which it is
// stored. Returns kDone, or kRefused after it has said why.
[[nodiscard]] int tidy_form(const EventForm& before, EventForm& form);

// Entries: doc/event-entry.md.
using Entry = StringBuffer<511>;
[[nodiscard]] Entry new_entry(const EventForm& form, int jpeg_fps);

// `stored` with the elements that `before` and `after` make differ; all others stay
// as they are.
[[nodiscard]] Entry update_entry(std::string_view stored, const EventForm& before,
                                 const EventForm& after, int jpeg_fps);

}  // namespace kt::tools

#endif
