#include <stdarg.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <string_view>

#include "base/paths.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "ktcomm/log.h"
#include "log/datagram.h"
#include "log/event_file.h"
#include "log/event_text.h"
#include "log/syslog_settings.h"

namespace kt {
namespace {

constexpr char kSection[] = "LOG";
constexpr int kLevels = 4;
constexpr int kDefaultLevel = 3;
constexpr int kRelayModes = 2;
constexpr int kClearedMessage = 2;
constexpr int kClearTries = 100;

struct Filter {
  int syslog_mode;
  int log_level;
};

[[nodiscard]] bool read_filter(Filter& filter) {
  const unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return false;
  const int mode = read_number(kSection, "syslog_mode", 0, settings.get());
  const int level = read_number(kSection, "log_level", kDefaultLevel, settings.get());
  filter.syslog_mode = mode < kRelayModes ? mode : 0;
  filter.log_level = level < kLevels ? level : kDefaultLevel;
  return true;
}

// Whether a format of the catalogue leaves the caller's memory alone, which %n does
// not, and asks for no width beyond all messages, which would take seconds to fill.
[[nodiscard]] bool is_harmless(const char* format) {
  constexpr char kBeforeConversion[] = "-+ #0'.*$123456789hlLqjzt";
  while ((format = strchr(format, '%')) != nullptr) {
    ++format;
    const std::string_view options(format, strspn(format, kBeforeConversion));
    format += options.size();
    size_t digits = 0;
    for (const char c : options) {
      digits = c >= '0' && c <= '9' ? digits + 1 : 0;
      if (digits > 3) return false;
    }
    if (*format == 'n') return false;
    if (*format == '%') ++format;
  }
  return true;
}

// The store cuts a section name at a line feed in place, so it gets a copy.
[[nodiscard]] bool look_up(const char* category, int number, EventMessage& text, FILE* catalogue) {
  StringBuffer<511> section;
  section.append(category);
  return !section.truncated() && read_event_message(section.c_str(), number, text, catalogue) &&
         is_harmless(text.c_str());
}

// That the arguments fit the format is the caller's promise.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
[[nodiscard]] EventMessage fill_in(const char* format, va_list arguments) {
  EventMessage message;
  message.append_format_list(format, arguments);
  // A text that ends in a lone %, as one cut to its length may, is no format: it stands as it is.
  if (message.size() == 0 && message.truncated()) message.append(format);
  return message;
}
#pragma GCC diagnostic pop

[[nodiscard]] bool relay(long time, std::string_view message) {
  const std::optional<int> date_format = read_date_format();
  if (!date_format) return false;
  const EventDate date = format_event_date(*date_format, time);
  send_datagram(paths::kEventRelay, make_event_line(date.view(), message).view());
  return true;
}

}  // namespace
}  // namespace kt

int AddLog(const char* category, int level, int number, ...) {
  kt::Filter filter;
  if (!kt::read_filter(filter)) {
    KT_DEBUGn_in(8, 0, 0, "%s(%d): open %s failed\n", __func__, __LINE__, kt::paths::kSettings);
    return -1;
  }
  // A level that does not exist is wrong whatever the filter says.
  if (level >= kt::kLevels) {
    KT_DEBUGn_in(8, 0, 0, "%s(%d): level=%d is wrong \n", __func__, __LINE__, level);
    return -1;
  }
  if (level > filter.log_level) {
    KT_DEBUGn_in(8, 0, 0, "%s(%d): level=%d > %d\n", __func__, __LINE__, level, filter.log_level);
    return 0;
  }
  kt::unique_file catalogue = kt::open_file(kt::paths::kEventCatalogue, "re");
  if (!catalogue.ok()) {
    KT_DEBUGn_in(8, 0, 0, "%s(%d): open %s failed\n", __func__, __LINE__,
                 kt::paths::kEventCatalogue);
    return -1;
  }
  kt::EventMessage format;
  if (category == nullptr || !kt::look_up(category, number, format, catalogue.get())) {
    KT_DEBUGn_in(8, 0, 0, "%s(%d): get sec=%s, index=%d failed\n", __func__, __LINE__,
                 category != nullptr ? category : "(null)", number);
    return -1;
  }
  catalogue.reset();

  va_list arguments;
  va_start(arguments, number);
  const kt::EventMessage message = kt::fill_in(format.c_str(), arguments);
  va_end(arguments);

  const auto now = static_cast<long>(::time(nullptr));
  const kt::EventLine record = kt::make_event_record(now, message.view());
  if (SaveMessageToLogFile(record.c_str(), now) != 0) {
    KT_DEBUGn_in(8, 0, 0, "%s(%d):SaveMessageToLogFile failed\n", __func__, __LINE__);
    return -1;
  }
  if (filter.syslog_mode != 0 && !kt::relay(now, message.view())) {
    KT_DEBUGn_in(8, 0, 0, "%s(%d):open %s failed\n", __func__, __LINE__, kt::paths::kSettings);
    return -1;
  }
  KT_DEBUGn_in(8, 0, 0, "%s(%d):log message ok,{%s}\n", __func__, __LINE__, record.c_str());
  return 0;
}

int AddLogDbg(const char* format, ...) {
  if (format == nullptr) return -1;
  va_list arguments;
  va_start(arguments, format);
  const kt::EventMessage message = kt::fill_in(format, arguments);
  va_end(arguments);

  const auto now = static_cast<long>(::time(nullptr));
  return SaveMessageToLogFile(kt::make_event_record(now, message.view()).c_str(), now);
}

int ClearLog(void) {
  {
    // Under the writers' lock: a file that shrinks while a writer has it mapped
    // would kill that writer. Somebody waits for the log to be cleared, so this
    // tries for longer than an entry does.
    kt::FlockFile log;
    if (!kt::open_event_log(log) || !kt::lock_event_log(log, kt::kClearTries)) return -1;
    if (::ftruncate(log.fd(), 0) != 0) return -1;
  }
  (void)AddLog(kt::kSection, 0, kt::kClearedMessage);
  (void)kt::run_shell("/bin/rm -f %s", kt::paths::kEventLogWrapped);
  return 0;
}
