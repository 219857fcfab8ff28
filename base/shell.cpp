#include "base/shell.h"

#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>

#include "base/string_buffer.h"

namespace kt {

bool run_shell(const char* format, ...) {
  StringBuffer<kCommandLength> command;
  va_list arguments;
  va_start(arguments, format);
  command.append_format_list(format, arguments);
  va_end(arguments);
  if (command.truncated()) {
    errno = ENAMETOOLONG;
    return false;
  }
  errno = 0;  // an ECHILD from before must not pass for this command's
  return ::system(command.c_str()) == 0 || errno == ECHILD;
}

}  // namespace kt
