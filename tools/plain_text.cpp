#include "tools/plain_text.h"

#include <stdio.h>

#include "tools/ktctl.h"

namespace kt::tools {

bool check_plain(const char* what, std::string_view text) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (!is_control(text[i])) continue;
    (void)fail(kRefused, "%s: control character 0x%02x at place %zu", what,
               static_cast<unsigned>(text[i]), i + 1);
    return false;
  }
  return true;
}

void print_plain(std::string_view text) {
  for (const char byte : text) (void)putchar(is_control(byte) ? '?' : byte);
}

}  // namespace kt::tools
