// plain_text.h - texts without control characters, which would forge lines of a
// file or play with a terminal.
#ifndef KTCOMM_TOOLS_PLAIN_TEXT_H
#define KTCOMM_TOOLS_PLAIN_TEXT_H

#include <string_view>

namespace kt::tools {

constexpr bool is_control(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return code < ' ' || code == 0x7f;
}

// Whether `text`, which `what` names, holds no control character; false after it
// has said where there is one.
[[nodiscard]] bool check_plain(const char* what, std::string_view text);

// Prints `text` with a '?' for each control character.
void print_plain(std::string_view text);

}  // namespace kt::tools

#endif
