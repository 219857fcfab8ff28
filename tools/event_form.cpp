#include "tools/event_form.h"

#include <limits.h>
#include <stddef.h>
#include <string.h>

#include <optional>

#include "base/text.h"
#include "tools/ktctl.h"
#include "tools/number.h"
#include "tools/schedule_item.h"

namespace kt::tools {
namespace {

constexpr char kOff[] = "off";
constexpr size_t kSlots = sizeof SchSlotSet::slots / sizeof(SchSlot);

constexpr Field any_number(const char* name, size_t offset) {
  return number_field(name, offset, INT_MIN, INT_MAX);
}

constexpr Field kFields[] = {
    text_field("name", offsetof(EventForm, name), sizeof EventForm::name),
    flag_field("enabled", offsetof(EventForm, enabled)),
    any_number("type", offsetof(EventForm, type)),
    any_number("source", offsetof(EventForm, source)),
    any_number("interval", offsetof(EventForm, interval)),
    text_field("actions", offsetof(EventForm, actions), sizeof EventForm::actions),
    text_field("format", offsetof(EventForm, format), sizeof EventForm::format),
    any_number("rec1", offsetof(EventForm, rec1)),
    any_number("rec2", offsetof(EventForm, rec2)),
    any_number("rec3", offsetof(EventForm, rec3)),
    text_field("schedule", offsetof(EventForm, schedule), sizeof EventForm::schedule)};

// ---- Lists ----------------------------------------------------------------

// Takes the first piece, which may be empty, off a list.
std::string_view take_piece(std::string_view& list, char separator) {
  const size_t length = list.find(separator);
  const std::string_view piece(list.data(), length < list.size() ? length : list.size());
  list.remove_prefix(piece.size() < list.size() ? piece.size() + 1 : piece.size());
  return piece;
}

template <size_t N>
void append_piece(StringBuffer<N>& list, char separator, std::string_view piece) {
  if (list.size() != 0) list.append({&separator, 1});
  list.append(piece);
}

void print_list(Printer& printer, const char* name, char separator, std::string_view list) {
  printer.begin_list(name);
  while (!list.empty()) printer.text(nullptr, take_piece(list, separator));
  printer.end_list();
}

// The text of a form's field.
using FieldText = StringBuffer<sizeof EventForm::schedule - 1>;

template <size_t N>
void put(char (&field)[N], const FieldText& text) {
  copy_cut(field, N, text.view());
}

// ---- Actions, formats, schedules ------------------------------------------

FieldText actions_text(unsigned actions) {
  FieldText text;
  for (const char* const name : event_action_tab) {
    if ((actions & 1) != 0) append_piece(text, ',', name);
    actions >>= 1;
  }
  return text;
}

std::optional<unsigned> action_bit(std::string_view word) {
  unsigned bit = 1;
  for (const char* const name : event_action_tab) {
    if (word == name) return bit;
    bit <<= 1;
  }
  return std::nullopt;
}

// Unknown names are passed over.
unsigned actions_mask(std::string_view list) {
  unsigned actions = 0;
  while (!list.empty()) actions |= action_bit(take_piece(list, ',')).value_or(0);
  return actions;
}

FieldText schedule_text(const SchSlotSet& set) {
  FieldText text;
  for (const SchSlot& slot : set.slots) {
    if (slot.day_mask != 0) append_piece(text, ';', item_text(slot).view());
  }
  return text;
}

int check_actions(const EventForm& form) {
  FieldText known;
  for (const char* const name : event_action_tab) append_piece(known, ' ', name);
  std::string_view list = form.actions;
  while (!list.empty()) {
    const std::string_view word = take_piece(list, ',');
    if (action_bit(word)) continue;
    return fail(kRefused, "actions: %.*s: none of %s", static_cast<int>(word.size()), word.data(),
                known.c_str());
  }
  return kDone;
}

int check_format(const EventForm& form) {
  FieldText known;
  for (const char* const name : file_format_tab) {
    if (strcmp(form.format, name) == 0) return kDone;
    append_piece(known, ' ', name);
  }
  return fail(kRefused, "format: %s: none of %s", form.format, known.c_str());
}

int tidy_schedule(EventForm& form) {
  if (strcmp(form.schedule, kOff) == 0) return kDone;
  SchSlotSet set = {};
  size_t count = 0;
  std::string_view list = form.schedule;
  do {
    StringBuffer<sizeof form.schedule> item;
    item.append(take_piece(list, ';'));
    SchSlot slot;
    if (const char* const reason = read_item(item.c_str(), slot)) {
      return fail(kRefused, "schedule: %s: %s", item.c_str(), reason);
    }
    if (count == kSlots) return fail(kRefused, "schedule: more than %zu items", kSlots);
    set.slots[count++] = slot;
  } while (!list.empty());
  put(form.schedule, schedule_text(set));
  return kDone;
}

// Whether the command line takes such a name for something else.
bool is_taken_word(const char* name) {
  return parse_number(name) || strcmp(name, "event") == 0 || strcmp(name, "video") == 0;
}

int check_name(const char* name) {
  if (name[0] == '\0') return fail(kRefused, "name: an event needs one");
  if (strchr(name, '|') != nullptr) return fail(kRefused, "name: %s: no | fits in", name);
  if (is_taken_word(name)) {
    return fail(kRefused, "name: %s: numbers, event and video stand for something else", name);
  }
  return kDone;
}

// ---- Entries --------------------------------------------------------------

// In the order in which they are written.
constexpr const char* kKeys[] = {"is", "es", "et", "acts", "ei", "ea", "en"};
enum Element : size_t { kSource, kSchedule, kType, kActions, kInterval, kMedia, kName, kElements };
static_assert(sizeof kKeys / sizeof kKeys[0] == kElements);

void append_schedule(Entry& text, const EventForm& form) {
  const bool off = strcmp(form.schedule, kOff) == 0;
  text.append(form.enabled == 0 ? "2," : off ? "0," : "1,");
  if (!off) text.append(form.schedule);
}

void append_actions(Entry& text, const EventForm& form) {
  unsigned actions = actions_mask(form.actions);
  const char* separator = "";
  for (const char* const name : event_action_tab) {
    text.append_format("%s%s:%u", separator, name, actions & 1);
    separator = ";";
    actions >>= 1;
  }
}

void append_media(Entry& text, const EventForm& form, int jpeg_fps) {
  text.append(form.format);
  if (strcmp(form.format, "jpg") == 0) text.append_format(":%d", jpeg_fps);
  text.append_format(",%d,%d,%d", form.rec1, form.rec2, form.rec3);
}

Entry make_element(size_t element, const EventForm& form, int jpeg_fps) {
  Entry text;
  text.append_format("%s=", kKeys[element]);
  switch (element) {
    case kSource:
      text.append_format("%d", form.source);
      break;
    case kSchedule:
      append_schedule(text, form);
      break;
    case kType:
      text.append_format("%d", form.type);
      break;
    case kActions:
      append_actions(text, form);
      break;
    case kInterval:
      text.append_format("%d", form.interval);
      break;
    case kMedia:
      append_media(text, form, jpeg_fps);
      break;
    default:
      text.append(form.name);
  }
  return text;
}

// The one of `changed` that is to take the place of a piece of an entry.
Entry* find_element(Entry (&changed)[kElements], std::string_view piece) {
  size_t element = 0;
  for (Entry& text : changed) {
    const std::string_view key = kKeys[element++];
    const bool same =
        has_prefix(piece, key) && piece.size() > key.size() && piece[key.size()] == '=';
    if (same && text.size() != 0) return &text;
  }
  return nullptr;
}

}  // namespace

std::span<const Field> event_fields() {
  return kFields;
}

bool has_schedule(const EventEntry& event) {
  if (event.enabled != 0 && event.schedule.enable == 0) return false;
  return schedule_text(event.schedule).size() != 0;
}

EventForm form_of(const EventEntry& event) {
  EventForm form;
  copy_cut(form.name, sizeof form.name, event.name);
  form.enabled = event.enabled;
  form.type = event.type;
  form.source = event.input_source;
  form.interval = event.interval;
  put(form.actions, actions_text(event.actions));
  copy_cut(form.format, sizeof form.format, file_format_tab[event.format]);
  form.rec1 = event.rec1;
  form.rec2 = event.rec2;
  form.rec3 = event.rec3;
  if (has_schedule(event)) put(form.schedule, schedule_text(event.schedule));
  return form;
}

void print_form(Printer& printer, const EventForm& form) {
  if (printer.plain()) {
    print_fields(printer, kFields, &form);
    return;
  }
  const bool off = strcmp(form.schedule, kOff) == 0;
  for (const Field& field : kFields) {
    if (field.offset == offsetof(EventForm, actions)) {
      print_list(printer, field.name, ',', form.actions);
    } else if (field.offset == offsetof(EventForm, schedule)) {
      print_list(printer, field.name, ';', off ? "" : form.schedule);
    } else {
      print_fields(printer, {&field, 1}, &form);
    }
  }
}

int tidy_form(const EventForm& before, EventForm& form) {
  const bool renamed = form.name[0] == '\0' || strcmp(before.name, form.name) != 0;
  if (renamed && check_name(form.name) != kDone) return kRefused;
  if (strcmp(before.actions, form.actions) != 0 && check_actions(form) != kDone) return kRefused;
  if (strcmp(before.format, form.format) != 0 && check_format(form) != kDone) return kRefused;
  if (strcmp(before.schedule, form.schedule) != 0 && tidy_schedule(form) != kDone) return kRefused;
  return kDone;
}

Entry new_entry(const EventForm& form, int jpeg_fps) {
  Entry entry;
  for (size_t element = 0; element < kElements; ++element) {
    append_piece(entry, '|', make_element(element, form, jpeg_fps).view());
  }
  return entry;
}

Entry update_entry(std::string_view stored, const EventForm& before, const EventForm& after,
                   int jpeg_fps) {
  Entry changed[kElements];  // empty for an element that stays
  for (size_t element = 0; element < kElements; ++element) {
    const Entry text = make_element(element, after, jpeg_fps);
    if (text.view() != make_element(element, before, jpeg_fps).view()) changed[element] = text;
  }
  Entry entry;
  while (!stored.empty()) {
    const std::string_view piece = take_piece(stored, '|');
    Entry* const replacement = find_element(changed, piece);
    append_piece(entry, '|', replacement != nullptr ? replacement->view() : piece);
    if (replacement != nullptr) *replacement = Entry();  // a second of its kind does not count
  }
  for (const Entry& text : changed) {
    if (text.size() != 0) append_piece(entry, '|', text.view());
  }
  return entry;
}

}  // namespace kt::tools
