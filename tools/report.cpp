#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "tools/ktctl.h"
#include "tools/plain_text.h"

namespace kt::tools {

int fail(ExitCode code, const char* format, ...) {
  char message[2048];
  va_list arguments;
  va_start(arguments, format);
  (void)vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  (void)fprintf(stderr, "ktctl: %s\n", message);
  return code;
}

int would(const char* format, ...) {
  char message[2048];
  va_list arguments;
  va_start(arguments, format);
  (void)vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  (void)printf("would ");
  for (const char* c = message; *c != '\0'; ++c) (void)putchar(is_control(*c) ? '?' : *c);
  (void)printf("\n");
  return kDone;
}

int fail_errno(const char* path) {
  if (errno == ENOENT) return fail(kNotFound, "%s: not found", path);
  return fail(kSystemError, "%s: %s", path, strerror(errno));
}

}  // namespace kt::tools
