#include "tools/would_set.h"

#include <string.h>

#include "base/string_buffer.h"

namespace kt::tools {
namespace {

using ValueText = StringBuffer<511>;

// A number as it is, a text in quotes.
ValueText value_text(const Field& field, const void* record) {
  const char* const place = static_cast<const char*>(record) + field.offset;
  ValueText text;
  if (field.size != 0) {
    text.append_format("\"%.*s\"", static_cast<int>(field.size), place);
    return text;
  }
  int number;
  memcpy(&number, place, sizeof number);
  text.append_format("%d", number);
  return text;
}

}  // namespace

int would_change_nothing() {
  return would("change nothing");
}

int tell_field_changes(const char* where, std::span<const Field> fields, const void* before,
                       const void* after) {
  int count = 0;
  for (const Field& field : fields) {
    if (are_equal({&field, 1}, before, after)) continue;
    (void)would("set %s %s from %s to %s", where, field.name, value_text(field, before).c_str(),
                value_text(field, after).c_str());
    ++count;
  }
  return count;
}

int would_set(const char* where, std::span<const Field> fields, const void* before,
              const void* after) {
  return tell_field_changes(where, fields, before, after) != 0 ? kDone : would_change_nothing();
}

}  // namespace kt::tools
