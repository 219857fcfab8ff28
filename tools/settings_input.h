// settings_input.h - what may go into a settings file, and what must not.
#ifndef KTCOMM_TOOLS_SETTINGS_INPUT_H
#define KTCOMM_TOOLS_SETTINGS_INPUT_H

#include <string_view>

#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "tools/settings_text.h"

namespace kt::tools {

inline constexpr size_t kLongestPath = 1023;  // of a file to be written

// A section as the command line gives it, "NET" or "[NET]".
class Section {
 public:
  explicit Section(std::string_view argument);

  // Bare; null for an empty one, which stands for the keys before any section.
  [[nodiscard]] const char* name() const { return empty() ? nullptr : name_.c_str(); }
  [[nodiscard]] const char* text() const { return name_.c_str(); }
  [[nodiscard]] bool empty() const { return name_.size() == 0; }
  [[nodiscard]] bool over_long() const { return name_.truncated(); }

 private:
  StringBuffer<61> name_;  // the longest name that a header can be made of
};

// Opens a settings file for reading. Returns kDone, or the exit code after it has
// said why; only regular files will do: others never end, or wait for ever.
[[nodiscard]] int open_settings(const char* path, unique_file& file);

// Reads one whole, for a moment waiting for whoever is just writing; returns the same.
[[nodiscard]] int read_settings(const char* path, Text& text);

// Each of these returns false after it has said why on standard error.

// Whether a section of this name can be written.
[[nodiscard]] bool check_section(const char* file, const Section& section);

// Whether "key=value" can be written and will be stored by a save.
[[nodiscard]] bool check_assignment(const char* file, const Section& section, const char* key,
                                    const char* value);

// Whether `value`, of the field that `where` names, holds bytes only that a save
// stores.
[[nodiscard]] bool check_value(const char* where, const char* value);

// Whether the path of a file to be written survives the shell, which it reaches.
[[nodiscard]] bool check_path(const char* path);

}  // namespace kt::tools

#endif
