#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "tools/ktctl.h"
#include "tools/plain_text.h"

namespace kt::tools {
namespace {

// One line, whatever names and values it holds: a question mark for each control
// character.
struct Message {
  [[gnu::format(printf, 2, 0)]] Message(const char* format, va_list arguments) {
    (void)vsnprintf(text, sizeof text, format, arguments);
    for (char* c = text; *c != '\0'; ++c) *c = is_control(*c) ? '?' : *c;
  }

  char text[2048];
};

}  // namespace

int fail(ExitCode code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  (void)fprintf(stderr, "ktctl: %s\n", Message(format, arguments).text);
  va_end(arguments);
  return code;
}

int would(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  (void)printf("would %s\n", Message(format, arguments).text);
  va_end(arguments);
  return kDone;
}

int fail_errno(const char* path) {
  if (errno == ENOENT) return fail(kNotFound, "%s: not found", path);
  return fail(kSystemError, "%s: %s", path, strerror(errno));
}

}  // namespace kt::tools
