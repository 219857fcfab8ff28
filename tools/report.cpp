#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "tools/ktctl.h"

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
  va_list arguments;
  va_start(arguments, format);
  (void)printf("would ");
  (void)vprintf(format, arguments);
  (void)printf("\n");
  va_end(arguments);
  return kDone;
}

int fail_errno(const char* path) {
  if (errno == ENOENT) return fail(kNotFound, "%s: not found", path);
  return fail(kSystemError, "%s: %s", path, strerror(errno));
}

}  // namespace kt::tools
