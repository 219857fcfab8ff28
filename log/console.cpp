#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>

#include "base/io.h"
#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/unique_fd.h"
#include "base/unique_file.h"
#include "ktcomm/log.h"

int console_printf(const char* format, ...) {
  if (format == nullptr) return 0;
  kt::StringBuffer<2047> text;
  va_list arguments;
  va_start(arguments, format);
  text.append_format_list(format, arguments);
  va_end(arguments);

  const kt::unique_fd console = kt::open_fd(kt::paths::kConsole, O_WRONLY | O_NOCTTY);
  (void)kt::write_fully(console.get(), text.c_str(), text.size());
  return 0;
}

int mmcsd_printf(const char* path, const char* format, ...) {
  if (path == nullptr || format == nullptr) return -1;
  const kt::unique_file file = kt::open_file(path, "a+e");
  if (!file.ok()) return -1;
  (void)fprintf(file.get(), "[%s %s] ", __DATE__, __TIME__);
  va_list arguments;
  va_start(arguments, format);
  (void)vfprintf(file.get(), format, arguments);
  va_end(arguments);
  return 0;
}
