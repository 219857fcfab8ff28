#include <stdlib.h>
#include <string.h>

#include "base/paths.h"
#include "base/unique_malloc.h"
#include "config/ini_line.h"
#include "ktcomm/config.h"

namespace kt {
namespace {

constexpr int kNumberLimit = 63;  // and the byte more that a value of exactly the limit takes

int find_section(const char* section, FILE* stream, LetterCase letter_case) {
  constexpr int kFound = 0;
  constexpr int kNotFound = 1;
  if (section == nullptr || stream == nullptr) return kNotFound;
  cut_at_line_feed(section);
  const SectionHeader header(section);
  rewind(stream);
  IniLine line;
  while (line.read(stream)) {
    if (header.matches(line, letter_case)) return kFound;
  }
  return kNotFound;
}

// Reads the lines of one section until one gives the key's value.
bool scan_for_key(const char* key, char* out, size_t size, FILE* stream, char* line,
                  size_t line_size) {
  while (const size_t length = read_line(stream, line, line_size)) {
    if (line[0] == '[') return false;
    const auto value = find_value({line, length}, key);
    if (!value) continue;
    store_value(strip_line_end(*value), out, size);
    return true;
  }
  return false;
}

bool look_up(const char* section, const char* key, char* out, int size, FILE* stream) {
  if (stream == nullptr) return false;
  if (section == nullptr) {
    rewind(stream);
  } else if (find_section(section, stream, LetterCase::kExact) != 0) {
    return false;
  }
  const size_t limit = static_cast<size_t>(size);
  if (limit > sizeof IniLine::text) {
    const auto line = allocate<char>(limit + 64);
    return line != nullptr && scan_for_key(key, out, limit, stream, line.get(), limit + 64);
  }
  char line[sizeof IniLine::text];
  return scan_for_key(key, out, limit, stream, line, sizeof line);
}

// The text of a number, or null when it is not found.
const char* get_number(const char* section, const char* key, const void* out, FILE* stream,
                       char (&text)[kNumberLimit + 1]) {
  if (out == nullptr || PRO_GetStr(section, key, text, kNumberLimit, stream) != 0) return nullptr;
  return text;
}

}  // namespace
}  // namespace kt

using namespace kt;

int PRO_GetStr(const char* section, const char* key, char* out, int size, FILE* stream) {
  if (key == nullptr || out == nullptr || size < 1) return -1;
  if (look_up(section, key, out, size, stream)) return 0;
  // Open to writing too: a defaults file that cannot be written serves nobody.
  const unique_file defaults = open_file(paths::kDefaultSettings, "r+e");
  return look_up(section, key, out, size, defaults.get()) ? 0 : -1;
}

int PRO_GetInt(const char* section, const char* key, int* out, FILE* stream) {
  char text[kNumberLimit + 1];
  if (get_number(section, key, out, stream, text) == nullptr) return -1;
  *out = atoi(text);
  return 0;
}

int PRO_GetLong(const char* section, const char* key, long* out, FILE* stream) {
  char text[kNumberLimit + 1];
  if (get_number(section, key, out, stream, text) == nullptr) return -1;
  *out = atol(text);
  return 0;
}

int PRO_GetChar(const char* section, const char* key, char* out, FILE* stream) {
  char text[kNumberLimit + 1];
  if (get_number(section, key, out, stream, text) == nullptr) return -1;
  *out = text[0];
  return 0;
}

int PRO_2sect(const char* section, FILE* stream) {
  return find_section(section, stream, LetterCase::kExact);
}

int PRO_i2sect(const char* section, FILE* stream) {
  return find_section(section, stream, LetterCase::kIgnored);
}
