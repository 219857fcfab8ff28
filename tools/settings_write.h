// settings_write.h - one value written and looked at again.
#ifndef KTCOMM_TOOLS_SETTINGS_WRITE_H
#define KTCOMM_TOOLS_SETTINGS_WRITE_H

#include "tools/settings_input.h"

namespace kt::tools {

constexpr int kValueLimit = 511;  // a value of the limit takes a byte more

struct Value {
  char text[kValueLimit + 1];
};

[[nodiscard]] bool read_value(const Section& section, const char* key, FILE* file, Value& value);

// Says that a section of the file at `path` could not be written; its exit code.
int not_written(const char* path, const Section& section);

// Writes a value, signals kept waiting, and reads it back. Returns kDone, or the
// exit code after it has said what is wrong with it, or with the file.
[[nodiscard]] int store_value(const char* path, const Section& section, const char* key,
                              const char* wanted);

}  // namespace kt::tools

#endif
