// Event entries: what is read, written and read again stays the same.
//
// Input: key of an element; the entry.
#include <string.h>

#include "fuzz/fuzz.h"
#include "ktcomm/sched.h"

using namespace kt::fuzz;

namespace {

constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf";

// The value of the first element with that key.
void judge_element(const std::string& entry, Text& key) {
  bool found = false;
  std::string value;
  for (size_t at = 0; !found && at <= entry.size();) {
    const size_t end = std::min(entry.find('|', at), entry.size());
    const std::string element = entry.substr(at, end - at);
    found = begins_with(element, key.str() + "=");
    if (found) value = element.substr(key.str().size() + 1);
    at = end + 1;
  }
  // A key with a '|' in it spans elements: found where it stands, its value ends at the next.
  if (key.is_null() || key.str().find('|') != std::string::npos) return;
  Text text(entry);
  std::vector<char> out(entry.size() + 1, '#');
  expect_same("an element is found", get_element_from_event_entry(text.get(), key.get(), out.data()), found ? 0 : 1);
  if (!found) return;
  expect_same("value of the element", std::string(out.data()), value);

  std::vector<char> longer(entry.size() + key.str().size() + value.size() + 3);
  memcpy(longer.data(), entry.c_str(), entry.size());
  expect_same("an element is added", add_element_to_event_entry(longer.data(), key.get(), value.c_str()), 0);
  expect_same("entry with it", std::string(longer.data()), entry + "|" + key.str() + "=" + value);
}

// The first format, in any case, that the element begins with.
void judge_format(const std::string& entry, int format) {
  Text text(entry);
  std::vector<char> media(entry.size() + 1);
  (void)get_element_from_event_entry(text.get(), "ea", media.data());
  int wanted = 6;
  while (wanted > 0 && strncasecmp(media.data(), file_format_tab[wanted], 3) != 0) --wanted;
  expect_same("format", format, wanted);
}

// What an event is when it has been saved and read again.
EventEntry saved(EventEntry event) {
  if (event.enabled == 0) event.schedule.enable = 0;  // one state only for those
  return event;
}

std::string bytes_of(const EventEntry& event) { return {reinterpret_cast<const char*>(&event), sizeof event}; }

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  Text key = input.text();
  const std::string entry = up_to_nul(input.rest());
  judge_element(entry, key);

  write_file("/etc/def_sys.conf", "");
  std::string settings =
      "[EVENT]\nevent_trigger=1\nevent_jpeg_fps=5\nevent1_entry=" + entry.substr(0, entry.find('\n')) + "\n";
  for (int i = 2; i <= 10; ++i) settings += "event" + std::to_string(i) + "_entry=\n";
  write_file(kSettings, settings);
  static EventConfig config, again;
  expect_same("events are read", ReadEventConf(&config), 0);
  const EventEntry& event = config.events[0];
  expect(memchr(event.name, '\0', sizeof event.name) != nullptr, "a name ends");
  expect(event.format >= 0 && event.format < 7 && event.is_jpeg == (event.format == 4 ? 1 : 0), "a format is known");
  expect((event.enabled == 0 || event.enabled == 1) && event.schedule.enable <= 1 && event.actions < 1U << 14, "flags");
  judge_format(entry.substr(0, std::min<size_t>(entry.find('\n'), 511)), event.format);
  (void)check_event_type_schedule(static_cast<unsigned>(event.type), &config);
  (void)ReadEventConf(&config);  // as before that

  // Not stored as they are: a name's line end, a slot behind an unused one or beyond all times of day.
  const size_t length = strnlen(event.name, sizeof event.name);
  bool in_use = true, writable = length != 0 && event.name[length - 1] != '\r';
  for (const SchSlot& slot : event.schedule.slots) {
    writable = writable && (slot.day_mask == 0 ? slot.start == 0 && slot.end == 0 : in_use) && slot.start < 6000 &&
               slot.end < 6000;
    in_use = slot.day_mask != 0;
  }
  expect_same("events are saved", SaveEventConf(&config), 0);
  expect_same("events are read again", ReadEventConf(&again), 0);
  if (writable) expect_same("event", bytes_of(again.events[0]), bytes_of(saved(event)));
  const std::string once = read_file(kSettings);
  expect_same("events are saved again", SaveEventConf(&again), 0);
  expect_same("settings", read_file(kSettings), once);
  return 0;
}
