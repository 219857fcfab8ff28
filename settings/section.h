// section.h - the keys of one section of the settings file.
#ifndef KTCOMM_SETTINGS_SECTION_H
#define KTCOMM_SETTINGS_SECTION_H

#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <string_view>

#include "base/text.h"
#include "ktcomm/config.h"

namespace kt {

// The text of a field; one without a NUL ends before its last byte.
template <size_t N>
std::string_view text_of(const char (&field)[N]) {
  return {field, strnlen(field, N - 1)};
}

class Section {
 public:
  explicit constexpr Section(const char* name) : name_(name) {}

  // The value of `key`, `fallback` when it is missing.
  [[nodiscard]] int read_number(const char* key, int fallback, FILE* settings) const;

  // Stores a value of up to N - 1 characters whole and a longer one cut to N - 2;
  // false, with an empty text, when it is missing.
  template <size_t N>
  bool read_value(const char* key, char (&value)[N], FILE* settings) const {
    value[0] = '\0';
    return PRO_GetStr(name_, key, value, N - 1, settings) == 0;
  }

  // The value of `key`, `fallback` when it is missing, cut to the field.
  template <size_t N>
  void read_text(const char* key, const char* fallback, char (&field)[N], FILE* settings) const {
    char value[N + 1];
    const bool found = read_value(key, value, settings);
    copy_cut(field, N, found ? value : fallback);
  }

  // Write one key; false when that fails.
  [[nodiscard]] bool write_number(const char* key, int value) const;
  [[nodiscard]] bool write_text(const char* key, const char* value) const;

  // The same for a field, with or without a NUL.
  template <size_t N>
  [[nodiscard]] bool write_field(const char* key, const char (&field)[N]) const {
    char value[N];
    copy_cut(value, N, text_of(field));
    return write_text(key, value);
  }

 private:
  const char* name_;
};

}  // namespace kt

#endif
