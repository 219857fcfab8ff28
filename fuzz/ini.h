// ini.h - sections of a settings file, as literally as doc/settings-file.md has them.
#ifndef KTCOMM_FUZZ_INI_H
#define KTCOMM_FUZZ_INI_H

#include <strings.h>

#include <optional>

#include "fuzz/fuzz.h"

namespace kt::fuzz {

// "[NAME]"; empty for a name that is too long.
inline std::string ini_header(const std::string& section) {
  if (begins_with(section, "[")) return section;
  return section.size() > 61 ? "" : "[" + section + "]";
}

inline bool ini_begins(const std::string& line, const std::string& prefix, bool any_case) {
  return line.size() >= prefix.size() &&
         (any_case ? strncasecmp(line.c_str(), prefix.c_str(), prefix.size()) == 0 : begins_with(line, prefix));
}

// The offset of what follows the header of a section, up to its first line feed; the
// start of the file for a null section.
inline std::optional<size_t> ini_section(const std::string& file, const Text& section, bool any_case) {
  if (section.is_null()) return 0;
  const std::string name = section.str(), header = ini_header(name.substr(0, name.find('\n')));
  size_t at = 0;
  for (const std::string& line : pieces_of(file, 511)) {
    at += line.size();
    if (line[0] == '[' && !header.empty() && ini_begins(line, header, any_case)) return at;
  }
  return std::nullopt;
}

}  // namespace kt::fuzz

#endif
