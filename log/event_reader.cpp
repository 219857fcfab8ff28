#include <ctype.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>

#include <optional>
#include <string_view>

#include "base/line_window.h"
#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/text.h"
#include "base/unique_fd.h"
#include "base/unique_malloc.h"
#include "ktcomm/log.h"
#include "ktcomm/util_time.h"
#include "log/event_text.h"

namespace kt {
namespace {

using Line = char[kEventLength + 2];  // with its line feed and a NUL
using Date = StringBuffer<128>;

struct Event {
  long time;
  std::string_view message;
};

// Text on the heap that grows by what is added.
class HeapText {
 public:
  [[nodiscard]] bool append(std::string_view text) {
    char* const bigger = static_cast<char*>(::realloc(text_.get(), size_ + text.size() + 1));
    if (bigger == nullptr) return false;
    (void)text_.release();
    text_.reset(bigger);
    memcpy(bigger + size_, text.data(), text.size());
    size_ += text.size();
    bigger[size_] = '\0';
    return true;
  }

  [[nodiscard]] bool empty() const { return size_ == 0; }
  [[nodiscard]] char* release() { return text_.release(); }

 private:
  unique_malloc<char[]> text_;
  size_t size_ = 0;
};

bool read_line(LineWindow& lines, Line& line) {
  const std::string_view text = lines.next();
  copy_cut(line, sizeof line, text);
  return !text.empty();
}

// Reads "TIME MESSAGE"; false for any other line.
bool parse(const Line& line, Event& event) {
  char* rest = nullptr;
  event.time = strtol(line, &rest, 10);
  if (rest == line) return false;
  while (isspace(static_cast<unsigned char>(*rest)) != 0) ++rest;
  event.message = {rest, strcspn(rest, "\n")};
  return !event.message.empty();
}

Date format_date(long time, int iso, int date_format) {
  Date date;
  if (iso != 1) {
    date.append(format_event_date(date_format, time).view());
    return date;
  }
  char text[129] = "";
  (void)get_time_iso8601_string(text, sizeof text, time);
  date.append(text);
  return date;
}

bool append_event(HeapText& text, const Event& event, int iso, int date_format) {
  StringBuffer<512> rendering;
  rendering.append(format_date(event.time, iso, date_format).view());
  rendering.append(" ");
  rendering.append(event.message);
  rendering.append("\n");
  return text.append(rendering.view());
}

}  // namespace
}  // namespace kt

int GetLogFromFile(char** text) {
  return GetLogFromFile_in(text, 0, 0);
}

int GetLogFromFile_in(char** text, long since, int iso) {
  if (text == nullptr) return -1;
  const std::optional<int> date_format = kt::read_date_format();
  if (!date_format) return -1;
  const kt::unique_fd log = kt::open_fd(kt::paths::kEventLog, O_RDONLY);
  if (!log.ok()) return 0;

  char room[4096];
  kt::LineWindow lines(log.get(), room, sizeof(kt::Line) - 1);
  kt::HeapText events;
  kt::Line line;
  kt::Event event;
  while (kt::read_line(lines, line) && kt::parse(line, event) && event.time >= since) {
    if (!kt::append_event(events, event, iso, *date_format)) return -1;
  }
  if (!events.empty()) *text = events.release();
  return 0;
}
