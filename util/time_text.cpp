#include <string.h>

#include "base/local_time.h"
#include "base/string_buffer.h"
#include "ktcomm/util_time.h"

int get_time_iso8601_string(char* out, int size, long time) {
  struct tm local;
  if (out == nullptr || !kt::to_local_time(time, local)) return -1;

  const long east_minutes = local.tm_gmtoff / 60;
  const long minutes = east_minutes < 0 ? -east_minutes : east_minutes;
  kt::StringBuffer<63> text;
  text.append_format("%04lld-%02d-%02dT%02d:%02d:%02d%c%02ld:%02ld", local.tm_year + 1900LL,
                     local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                     east_minutes < 0 ? '-' : '+', minutes / 60, minutes % 60);
  if (size < 0 || text.size() >= static_cast<size_t>(size)) return -1;
  memcpy(out, text.c_str(), text.size() + 1);
  return 0;
}
