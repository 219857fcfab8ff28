#include "sched/crontab_line.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "base/string_buffer.h"

static_assert(sizeof(int) == sizeof(int32_t));
static_assert(offsetof(SchdEntry, command) == 0 && offsetof(SchdEntry, reserved) == 128 &&
              offsetof(SchdEntry, wday_step) == 132 && offsetof(SchdEntry, wday_start) == 136 &&
              offsetof(SchdEntry, wday_end) == 140 && offsetof(SchdEntry, month_step) == 144 &&
              offsetof(SchdEntry, month_start) == 148 && offsetof(SchdEntry, month_end) == 152 &&
              offsetof(SchdEntry, mday_step) == 156 && offsetof(SchdEntry, mday_start) == 160 &&
              offsetof(SchdEntry, mday_end) == 164 && offsetof(SchdEntry, hour_step) == 168 &&
              offsetof(SchdEntry, hour_start) == 172 && offsetof(SchdEntry, hour_end) == 176 &&
              offsetof(SchdEntry, min_step) == 180 && offsetof(SchdEntry, min_start) == 184 &&
              offsetof(SchdEntry, min_end) == 188 && sizeof(SchdEntry) == 192);

namespace kt {
namespace {

constexpr int kLeastSize = 180;  // of a line's buffer: no valid record makes a longer line
constexpr int kNotGiven = -1;

enum : int { kTooSmall = -4 };

// One of the five time fields, and the range that all its numbers lie in.
struct Field {
  int step, start, end, low, high;
};

Field minute(const SchdEntry& e) {
  return {e.min_step, e.min_start, e.min_end, 0, 59};
}
Field hour(const SchdEntry& e) {
  return {e.hour_step, e.hour_start, e.hour_end, 0, 23};
}
Field mday(const SchdEntry& e) {
  return {e.mday_step, e.mday_start, e.mday_end, 1, 31};
}
Field month(const SchdEntry& e) {
  return {e.month_step, e.month_start, e.month_end, 1, 12};
}
Field wday(const SchdEntry& e) {
  return {e.wday_step, e.wday_start, e.wday_end, 0, 6};
}

// A step has no range of its own: callers rely on one range for all three.
bool is_valid(const Field& field) {
  for (const int number : {field.step, field.start, field.end}) {
    if (number != kNotGiven && SCHDCheckRange(number, field.low, field.high) != 0) return false;
  }
  return true;
}

// The text of a field: three numbers of at most 11 characters, '-' and '/'.
class FieldText {
 public:
  explicit FieldText(const Field& field) {
    if (field.start == kNotGiven) {
      text_.append("*");
      return;
    }
    text_.append_format("%d", field.start);
    if (field.end == kNotGiven) return;  // a step needs an end to step to
    text_.append_format("-%d", field.end);
    if (field.step != kNotGiven) text_.append_format("/%d", field.step);
  }
  [[nodiscard]] const char* c_str() const { return text_.c_str(); }

 private:
  StringBuffer<35> text_;
};

// A command without a NUL goes on into the reserved word, so that one character
// too many is seen.
size_t command_length(const SchdEntry& entry) {
  return strnlen(reinterpret_cast<const char*>(&entry),
                 sizeof entry.command + sizeof entry.reserved);
}

}  // namespace

std::string_view after_blanks(std::string_view line, size_t n) {
  for (; n > 0; --n) {
    const size_t blank = line.find(' ');
    if (blank == std::string_view::npos) return {};
    line.remove_prefix(blank + 1);
  }
  return line;
}

}  // namespace kt

using namespace kt;

int SCHDCheckRange(int value, int low, int high) {
  return low <= value && value <= high ? 0 : -1;
}

int SCHDCheckField(SchdEntry* entry) {
  if (entry == nullptr) return -1;
  const size_t length = command_length(*entry);
  if (length == 0 || length > sizeof entry->command) return -1;
  entry->command[sizeof entry->command - 1] = '\0';
  for (const Field& field :
       {wday(*entry), month(*entry), mday(*entry), hour(*entry), minute(*entry)}) {
    if (!is_valid(field)) return -1;
  }
  return 0;
}

int SCHDConvtUserFormat(const SchdEntry* entry, char* out, int size, int linear) {
  if (entry == nullptr || out == nullptr) return -1;
  if (size < kLeastSize) return kTooSmall;
  memset(out, 0, static_cast<size_t>(size));
  (void)snprintf(out, static_cast<size_t>(size), "%s%s %s %s %s %s root %.127s\n",
                 linear != 0 ? "L" : "", FieldText(minute(*entry)).c_str(),
                 FieldText(hour(*entry)).c_str(), FieldText(mday(*entry)).c_str(),
                 FieldText(month(*entry)).c_str(), FieldText(wday(*entry)).c_str(), entry->command);
  return 0;
}

int SCHDCutFields(const char* line, int length, int n, char* out) {
  if (line == nullptr || out == nullptr || length <= 0 || n < 0) return -1;
  if (n == 0) return 0;
  const std::string_view rest =
      after_blanks({line, static_cast<size_t>(length)}, static_cast<size_t>(n));
  if (rest.empty()) return -1;
  memmove(out, rest.data(), rest.size());  // lines are cut in place, too
  if (out[rest.size() - 1] == '\n') out[rest.size() - 1] = '\0';
  return 0;
}
