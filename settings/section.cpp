#include "settings/section.h"

#include "base/paths.h"

namespace kt {

int Section::read_number(const char* key, int fallback, FILE* settings) const {
  int value = fallback;
  (void)PRO_GetInt(name_, key, &value, settings);
  return value;
}

bool Section::write_number(const char* key, int value) const {
  return PRO_SetInt(name_, key, value, paths::kSettings) == 0;
}

bool Section::write_text(const char* key, const char* value) const {
  return PRO_SetStr(name_, key, value, paths::kSettings) == 0;
}

}  // namespace kt
