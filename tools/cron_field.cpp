#include "tools/cron_field.h"

#include <string.h>
#include <strings.h>

#include <optional>

#include "tools/number.h"

namespace kt::tools {

const CronField kCronField[kCronFields] = {
    {"MINUTE", 0, 59, ""},
    {"HOUR", 0, 23, ""},
    {"MDAY", 1, 31, ""},
    {"MONTH", 1, 12, "janfebmaraprmayjunjulaugsepoctnovdec"},
    {"WDAY", 0, 6, "sunmontuewedthufrisat"},
};

namespace {

constexpr size_t kWordLength = 3;

std::optional<int> parse_value(const CronField& field, std::string_view text) {
  const size_t words = strlen(field.words) / kWordLength;
  for (size_t i = 0; text.size() == kWordLength && i < words; ++i) {
    if (strncasecmp(field.words + i * kWordLength, text.data(), kWordLength) == 0) {
      return field.lowest + static_cast<int>(i);
    }
  }
  const auto number = parse_number(text);
  return number && *number >= field.lowest && *number <= field.highest ? number : std::nullopt;
}

// Cuts what follows `mark` off `text`; nothing when there is no mark.
std::optional<std::string_view> cut_behind(std::string_view& text, char mark) {
  const size_t place = text.find(mark);
  if (place == text.npos) return std::nullopt;
  std::string_view behind = text;
  behind.remove_prefix(place + 1);
  text.remove_suffix(text.size() - place);
  return behind;
}

}  // namespace

bool parse_range(const CronField& field, std::string_view text, CronRange& range, Reason& reason) {
  reason.append_format("%s: %.*s: ", field.name, shown_length(text), text.data());
  const auto step = cut_behind(text, '/');
  const bool any = text == "*";
  const auto end = cut_behind(text, '-');
  const auto refuse = [&](std::optional<int> number, const char* what) {
    if (number) return false;
    reason.append_format("%s from %d to %d is wanted", what, field.lowest, field.highest);
    return true;
  };
  if (!any) {
    const auto first = parse_value(field, text);
    if (refuse(first, "*, N, N-M or N-M/S")) return false;
    const auto last = end ? parse_value(field, *end) : first;
    if (refuse(last, "N-M")) return false;
    if (*last < *first) {
      reason.append("it ends before it begins");
      return false;
    }
    range.start = *first;
    if (end) range.end = *last;
  }
  if (!step) return true;
  const auto number = parse_number(*step);
  if (!number || *number < 1 || *number > field.highest) {
    reason.append_format("a step from 1 to %d is wanted", field.highest);
    return false;
  }
  if (!any && !end) {
    reason.append("a step needs a range, N-M/S");
    return false;
  }
  range.step = *number;
  return true;
}

}  // namespace kt::tools
