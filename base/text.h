// text.h - small questions about text.
#ifndef KTCOMM_BASE_TEXT_H
#define KTCOMM_BASE_TEXT_H

#include <stddef.h>
#include <string.h>

#include <string_view>

namespace kt {

inline bool has_prefix(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         (prefix.empty() || memcmp(text.data(), prefix.data(), prefix.size()) == 0);
}

// Copies at most `size` - 1 characters of `text` and a NUL into a field of
// `size` bytes (`size` at least 1); the rest of the field is left alone.
inline void copy_cut(char* field, size_t size, std::string_view text) {
  const size_t count = text.size() < size ? text.size() : size - 1;
  if (count != 0) memcpy(field, text.data(), count);
  field[count] = '\0';
}

}  // namespace kt

#endif
