// number.h - numbers as people write them on the command line.
#ifndef KTCOMM_TOOLS_NUMBER_H
#define KTCOMM_TOOLS_NUMBER_H

#include <charconv>
#include <optional>
#include <string_view>

namespace kt::tools {

// The decimal number that `text` is, all of it; nothing for other texts.
template <typename Number = int>
[[nodiscard]] std::optional<Number> parse_number(std::string_view text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

}  // namespace kt::tools

#endif
