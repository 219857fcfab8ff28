// hex_text.h - bytes as lowercase hex digits.
#ifndef KTCOMM_UTIL_HEX_TEXT_H
#define KTCOMM_UTIL_HEX_TEXT_H

#include <stddef.h>

namespace kt {

// Writes two digits for each of the `count` bytes, high nibble first, no NUL.
// `text` may be `bytes` itself.
inline void write_hex(unsigned char* text, const unsigned char* bytes, size_t count) {
  constexpr unsigned char kDigits[] = "0123456789abcdef";
  // From the last byte backwards, so that in place none is overwritten unread.
  for (size_t i = count; i-- > 0;) {
    const unsigned char byte = bytes[i];
    text[2 * i] = kDigits[byte >> 4];
    text[2 * i + 1] = kDigits[byte & 15];
  }
}

}  // namespace kt

#endif
