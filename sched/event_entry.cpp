#include <stdio.h>
#include <string.h>

#include "ktcomm/sched.h"

namespace {

enum : int { kDone = 0, kNotDone = 1 };

// What follows the '=' of the first element `key`, with the rest of the entry; null
// when there is none. Every step goes behind a '|', so that the search ends.
const char* find_value(const char* entry, const char* key) {
  const size_t key_length = strlen(key);
  while (strncmp(entry, key, key_length) != 0 || entry[key_length] != '=') {
    entry = strchr(entry, '|');
    if (entry == nullptr) return nullptr;
    ++entry;
  }
  return entry + key_length + 1;
}

}  // namespace

int get_element_from_event_entry(const char* entry, const char* key, char* out) {
  if (entry == nullptr || key == nullptr || out == nullptr) return kNotDone;
  const char* const value = find_value(entry, key);
  if (value == nullptr) return kNotDone;
  const size_t length = strcspn(value, "|");
  memcpy(out, value, length);
  out[length] = '\0';
  return kDone;
}

int add_element_to_event_entry(char* entry, const char* key, const char* value) {
  if (entry == nullptr || key == nullptr || value == nullptr) return kNotDone;
  const char* const separator = *entry != '\0' ? "|" : "";
  (void)sprintf(entry + strlen(entry), "%s%s=%s", separator, key, value);
  return kDone;
}
