#include "tools/message_format.h"

#include <string.h>

namespace kt::tools {
namespace {

constexpr char kFlags[] = "0-+ ";
constexpr char kDigits[] = "0123456789";
constexpr size_t kWidthDigits = 2;

// The conversion that begins behind a '%', with `position` moved past it; NUL for
// one that is neither a plain %s nor of an int.
char read_conversion(const char*& position) {
  if (*position == 's') return *position++;
  position += strspn(position, kFlags);
  const size_t width = strspn(position, kDigits);
  position += width;
  const bool of_int = *position != '\0' && strchr("diux", *position) != nullptr;
  return of_int && width <= kWidthDigits ? *position++ : '\0';
}

}  // namespace

const char* read_format(const char* text, MessageFormat& format) {
  const char* position = text;
  while ((position = strchr(position, '%')) != nullptr) {
    ++position;
    if (*position == '%') {
      ++position;
      continue;
    }
    const char kind = read_conversion(position);
    if (kind == '\0') return "it has a conversion other than %s, %d, %i, %u and %x";
    if (format.count == MessageFormat::kMost) return "it has more than 8 conversions";
    if (format.count != 0 && (kind == 's') != format.of_texts()) {
      return "it mixes texts and numbers";
    }
    format.kinds[format.count++] = kind;
  }
  return nullptr;
}

}  // namespace kt::tools
