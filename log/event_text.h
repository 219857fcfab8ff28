// event_text.h - the pieces of text that event log entries are made of.
#ifndef KTCOMM_LOG_EVENT_TEXT_H
#define KTCOMM_LOG_EVENT_TEXT_H

#include <stddef.h>
#include <stdio.h>

#include <optional>
#include <string_view>

#include "base/string_buffer.h"

namespace kt {

constexpr size_t kMessageLength = 256;
constexpr size_t kEventLength = 254;

using EventMessage = StringBuffer<kMessageLength>;
using EventLine = StringBuffer<kEventLength + 1>;
using EventDate = StringBuffer<22>;

// One line: at most 254 characters of `text` and a line feed. Line feeds inside
// become blanks, so that no text can pass itself off as another entry.
[[nodiscard]] EventLine make_event_line(std::string_view text);

// The line "PREFIX MESSAGE".
[[nodiscard]] EventLine make_event_line(std::string_view prefix, std::string_view message);

// The line "TIME MESSAGE", as it stands in the log.
[[nodiscard]] EventLine make_event_record(long time, std::string_view message);

// Appends message `number` of a catalogue section to `text`; false when there is
// none.
[[nodiscard]] bool read_event_message(const char* section, int number, EventMessage& text,
                                      FILE* catalogue);

// The configured form of dates; nothing when the settings cannot be opened.
[[nodiscard]] std::optional<int> read_date_format();

// Local date and time in that form.
[[nodiscard]] EventDate format_event_date(int date_format, long time);

}  // namespace kt

#endif
