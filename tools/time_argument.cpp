#include "tools/time_argument.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include <string_view>

#include "tools/number.h"

namespace kt::tools {
namespace {

// What a letter behind a number means in seconds; 0 for none that is known.
long unit_seconds(char unit) {
  switch (unit) {
    case 's':
      return 1;
    case 'm':
      return 60;
    case 'h':
      return 60L * 60;
    case 'd':
      return 24L * 60 * 60;
    default:
      return 0;
  }
}

std::optional<long> parse_age(std::string_view text, long now) {
  const long unit = text.empty() ? 0 : unit_seconds(text.back());
  if (unit == 0) return std::nullopt;
  text.remove_suffix(1);
  const auto count = parse_number<long long>(text);
  if (!count || *count < 0) return std::nullopt;
  return *count <= now / unit ? now - static_cast<long>(*count) * unit : 0;
}

bool is_in(int value, int lowest, int highest) {
  return value >= lowest && value <= highest;
}

// Whether `text` has the form of `pattern`, where 0 is any digit and a blank may be
// a T.
bool has_form(std::string_view text, std::string_view pattern) {
  if (text.size() != pattern.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (pattern[i] == '0' ? digit : text[i] == pattern[i]) continue;
    if (pattern[i] != ' ' || text[i] != 'T') return false;
  }
  return true;
}

std::optional<long> parse_date(const char* text) {
  constexpr std::string_view kForm = "0000-00-00 00:00:00";
  const size_t length = strlen(text);
  constexpr size_t kDate = 10, kMinutes = 16;
  if (length != kDate && length != kMinutes && length != kForm.size()) return std::nullopt;
  if (!has_form(text, {kForm.data(), length})) return std::nullopt;
  struct tm date = {};
  (void)sscanf(text, "%4d-%2d-%2d%*c%2d:%2d:%2d", &date.tm_year, &date.tm_mon, &date.tm_mday,
               &date.tm_hour, &date.tm_min, &date.tm_sec);  // what is not there stays 0
  if (!is_in(date.tm_hour, 0, 23) || !is_in(date.tm_min, 0, 59) || !is_in(date.tm_sec, 0, 59)) {
    return std::nullopt;
  }
  date.tm_year -= 1900;
  date.tm_mon -= 1;
  date.tm_isdst = -1;
  const int month = date.tm_mon;
  const time_t time = ::mktime(&date);
  // A day or month that does not exist has become one of another month.
  if (time == -1 || date.tm_mon != month) return std::nullopt;
  const auto seconds = static_cast<long>(time);
  return seconds == time ? std::optional<long>(seconds) : std::nullopt;
}

}  // namespace

std::optional<long> parse_time(const char* text, long now) {
  if (const auto seconds = parse_number<long>(text); seconds && *seconds >= 0) return seconds;
  if (const auto age = parse_age(text, now)) return age;
  return parse_date(text);
}

}  // namespace kt::tools
