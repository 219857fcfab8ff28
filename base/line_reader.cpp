#include "base/line_reader.h"

namespace kt {

size_t read_line(FILE* stream, char* buffer, size_t size) {
  size_t length = 0;
  while (length + 1 < size) {
    const int c = getc_unlocked(stream);
    if (c == EOF) break;
    buffer[length++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  buffer[length] = '\0';
  return length;
}

}  // namespace kt
