#include "log/event_text.h"

#include <time.h>

#include "base/local_time.h"
#include "base/paths.h"
#include "base/unique_file.h"
#include "ktcomm/config.h"
#include "log/syslog_settings.h"

namespace kt {
namespace {

enum DateFormat : int { kYearFirst = 0, kMonthFirst = 1, kDayFirst = 2 };

}  // namespace

EventLine make_event_line(std::string_view text) {
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  if (text.size() > kEventLength) text.remove_suffix(text.size() - kEventLength);
  EventLine line;
  for (size_t end = text.find('\n'); end != text.npos; end = text.find('\n')) {
    line.append({text.data(), end});
    line.append(" ");
    text.remove_prefix(end + 1);
  }
  line.append(text);
  line.append("\n");
  return line;
}

EventLine make_event_line(std::string_view prefix, std::string_view message) {
  StringBuffer<kEventLength + kMessageLength> text;
  text.append(prefix);
  text.append(" ");
  text.append(message);
  return make_event_line(text.view());
}

EventLine make_event_record(long time, std::string_view message) {
  StringBuffer<31> seconds;
  seconds.append_format("%ld", time);
  return make_event_line(seconds.view(), message);
}

bool read_event_message(const char* section, int number, EventMessage& text, FILE* catalogue) {
  StringBuffer<15> key;
  key.append_format("%d", number);
  char value[kMessageLength + 1];  // one as long as the limit is stored whole, and a NUL
  if (PRO_GetStr(section, key.c_str(), value, kMessageLength, catalogue) != 0) return false;
  text.append(value);
  return true;
}

std::optional<int> read_date_format() {
  const unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return std::nullopt;
  // The section's name is stored with its brackets.
  return read_number("[SYSTEM]", "date_format", kMonthFirst, settings.get());
}

EventDate format_event_date(int date_format, long time) {
  const struct tm local = local_time(time);
  const long long year = local.tm_year + 1900LL;
  const int month = local.tm_mon + 1;
  EventDate date;
  switch (date_format) {
    case kYearFirst:
      date.append_format("%lld-%02d-%02d", year, month, local.tm_mday);
      break;
    case kDayFirst:
      date.append_format("%02d/%02d/%lld", local.tm_mday, month, year);
      break;
    default:  // kMonthFirst, and all that mean nothing
      date.append_format("%02d/%02d/%lld", month, local.tm_mday, year);
      break;
  }
  date.append_format(" %02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
  return date;
}

}  // namespace kt
