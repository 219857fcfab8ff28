// fields.h - records as NAME=VALUE, one field a line or an argument.
#ifndef KTCOMM_TOOLS_FIELDS_H
#define KTCOMM_TOOLS_FIELDS_H

#include <stddef.h>

#include <span>

#include "tools/printer.h"

namespace kt::tools {

// One `int` of a record, with the numbers that will do, or one array of
// characters, `size` bytes with the NUL.
struct Field {
  const char* name;
  size_t offset;
  size_t size;  // 0 for a number
  int lowest;
  int highest;
  bool flag = false;  // 0 is no and 1 is yes
};

constexpr Field number_field(const char* name, size_t offset, int lowest, int highest) {
  return {name, offset, 0, lowest, highest};
}
constexpr Field flag_field(const char* name, size_t offset) {
  return {name, offset, 0, 0, 1, true};
}
constexpr Field text_field(const char* name, size_t offset, size_t size) {
  return {name, offset, size, 0, 0};
}

// Prints the fields of `record`, in the form that the request asks for or beside
// what else `printer` prints.
void print_fields(const Request& request, std::span<const Field> fields, const void* record);
void print_fields(Printer& printer, std::span<const Field> fields, const void* record);

// Puts the values of `assignments`, each "NAME=VALUE", into `record`. Returns
// kDone, or the exit code after it has said what is wrong: kUsage for a field
// that there is not, kRefused for a value that will not do. `record` may then
// have been changed in part.
[[nodiscard]] int set_fields(std::span<const Field> fields, std::span<char* const> assignments,
                             void* record);

// Whether two records have the same values in these fields.
[[nodiscard]] bool are_equal(std::span<const Field> fields, const void* one, const void* other);

}  // namespace kt::tools

#endif
