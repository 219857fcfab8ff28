#include "tools/fields.h"

#include <string.h>

#include <string_view>

#include "base/text.h"
#include "tools/number.h"
#include "tools/settings_input.h"

namespace kt::tools {
namespace {

const Field* find_field(std::span<const Field> fields, std::string_view name) {
  for (const Field& field : fields) {
    if (name == field.name) return &field;
  }
  return nullptr;
}

int set_number(const Field& field, const char* text, char* place) {
  const auto number = parse_number(text);
  if (!number || *number < field.lowest || *number > field.highest) {
    return fail(kRefused, "%s: %s: a number from %d to %d is wanted", field.name, text,
                field.lowest, field.highest);
  }
  memcpy(place, &*number, sizeof *number);
  return kDone;
}

int set_text(const Field& field, const char* text, char* place) {
  const size_t length = strlen(text);
  if (length >= field.size) {
    return fail(kRefused, "%s: more than %zu characters", field.name, field.size - 1);
  }
  if (!check_value(field.name, text)) return kRefused;
  memset(place, 0, field.size);
  copy_cut(place, field.size, {text, length});
  return kDone;
}

}  // namespace

void print_fields(Printer& printer, std::span<const Field> fields, const void* record) {
  for (const Field& field : fields) {
    const char* const place = static_cast<const char*>(record) + field.offset;
    if (field.size != 0) {
      printer.text(field.name, {place, strnlen(place, field.size)});
      continue;
    }
    int number;
    memcpy(&number, place, sizeof number);
    if (field.flag && (number == 0 || number == 1)) {
      printer.flag(field.name, number == 1);
    } else {
      printer.number(field.name, number);
    }
  }
}

void print_fields(const Request& request, std::span<const Field> fields, const void* record) {
  Printer printer(request);
  print_fields(printer, fields, record);
}

int set_fields(std::span<const Field> fields, std::span<char* const> assignments, void* record) {
  for (const char* const assignment : assignments) {
    const char* const equals = strchr(assignment, '=');
    if (equals == nullptr) return fail(kUsage, "%s: NAME=VALUE is wanted", assignment);
    const size_t length = static_cast<size_t>(equals - assignment);
    const Field* const field = find_field(fields, std::string_view(assignment, length));
    if (field == nullptr) {
      return fail(kUsage, "%.*s: there is no such field", static_cast<int>(length), assignment);
    }
    char* const place = static_cast<char*>(record) + field->offset;
    const char* const value = equals + 1;
    const int code =
        field->size != 0 ? set_text(*field, value, place) : set_number(*field, value, place);
    if (code != kDone) return code;
  }
  return kDone;
}

bool are_equal(std::span<const Field> fields, const void* one, const void* other) {
  for (const Field& field : fields) {
    const char* const a = static_cast<const char*>(one) + field.offset;
    const char* const b = static_cast<const char*>(other) + field.offset;
    const bool equal =
        field.size != 0 ? strncmp(a, b, field.size) == 0 : memcmp(a, b, sizeof(int)) == 0;
    if (!equal) return false;
  }
  return true;
}

}  // namespace kt::tools
