#include <stdlib.h>
#include <string.h>

#include <span>

#include "base/paths.h"
#include "base/unique_file.h"
#include "base/unique_malloc.h"
#include "config/ini_line.h"
#include "ktcomm/config.h"

namespace kt {
namespace {

constexpr int kNumberLimit = 63;  // and the byte more that a value of exactly the limit takes

bool find_section(LineWindow& lines, const char* section, LetterCase letter_case) {
  cut_at_line_feed(section);
  const SectionHeader header(section);
  while (lines.skip_to('[')) {
    if (header.matches(lines.next(), letter_case)) return true;
  }
  return false;
}

int find_section(const char* section, FILE* stream, LetterCase letter_case) {
  constexpr int kFound = 0;
  constexpr int kNotFound = 1;
  if (section == nullptr || stream == nullptr) return kNotFound;
  char room[kIniRoom];
  LineWindow lines(stream, room, kIniPiece);
  const bool is_found = find_section(lines, section, letter_case);
  lines.put_back();
  return is_found ? kFound : kNotFound;
}

// Lines of a value this long are cut further behind.
size_t piece_for(size_t size) {
  return size > kIniPiece + 1 ? size + 63 : kIniPiece;
}

bool look_up(const char* section, const char* key, char* out, size_t size, FILE* stream,
             std::span<char> room) {
  LineWindow lines(stream, room, kIniPiece);
  const bool is_found = look_up(lines, section, key, out, size);
  lines.put_back();
  return is_found;
}

bool look_up(const char* section, const char* key, char* out, int size, FILE* stream) {
  if (stream == nullptr) return false;
  const size_t limit = static_cast<size_t>(size);
  const size_t piece = piece_for(limit);
  if (piece > kIniPiece) {
    const auto room = allocate<char>(piece + kIniRoom);
    return room != nullptr &&
           look_up(section, key, out, limit, stream, {room.get(), piece + kIniRoom});
  }
  char room[kIniRoom];
  return look_up(section, key, out, limit, stream, room);
}

// The text of a number, or null when it is not found.
const char* get_number(const char* section, const char* key, const void* out, FILE* stream,
                       char (&text)[kNumberLimit + 1]) {
  if (out == nullptr || PRO_GetStr(section, key, text, kNumberLimit, stream) != 0) return nullptr;
  return text;
}

}  // namespace

bool look_up(LineWindow& lines, const char* section, const char* key, char* out, size_t size) {
  if (section != nullptr && !find_section(lines, section, LetterCase::kExact)) return false;
  lines.set_piece(piece_for(size));
  const std::string_view wanted(key);
  for (auto line = lines.next(); !line.empty() && line.front() != '['; line = lines.next()) {
    const auto value = find_value(line, wanted);
    if (!value) continue;
    store_value(strip_line_end(*value), out, size);
    return true;
  }
  return false;
}

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
