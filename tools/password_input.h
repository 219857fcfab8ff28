// password_input.h - passwords come from standard input: every process can see the
// arguments of all others.
#ifndef KTCOMM_TOOLS_PASSWORD_INPUT_H
#define KTCOMM_TOOLS_PASSWORD_INPUT_H

#include <ktcomm/settings.h>

#include <string_view>

namespace kt::tools {

struct Password {
  char text[KT_USER_PASSWORD_SIZE];
};

// Whether an account may have such a name or password, as far as its characters go.
[[nodiscard]] bool is_account_text(std::string_view text);

// Reads a password, one line; from a terminal without showing it, and twice. Returns
// kDone, or the exit code after it has said what is wrong.
[[nodiscard]] int read_password(Password& password);

}  // namespace kt::tools

#endif
