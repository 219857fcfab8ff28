#include "log/syslog_settings.h"

#include <string.h>

#include "base/paths.h"
#include "base/text.h"
#include "ktcomm/config.h"

namespace kt {
namespace {

constexpr char kServerKey[] = "syslog_server";

}  // namespace

int read_number(const char* section, const char* key, int fallback, FILE* settings) {
  int value = fallback;
  (void)PRO_GetInt(section, key, &value, settings);
  return value;
}

void read_server(const char* section, char (&server)[kServerSize], FILE* settings) {
  // A value as long as the limit is stored whole, with its NUL behind it.
  char value[kServerSize + 1] = "";
  (void)PRO_GetStr(section, kServerKey, value, kServerSize, settings);
  copy_cut(server, kServerSize, value);
}

bool write_number(const char* section, const char* key, int value) {
  return PRO_SetInt(section, key, value, paths::kSettings) == 0;
}

bool write_server(const char* section, const char (&server)[kServerSize]) {
  char value[kServerSize];
  copy_cut(value, kServerSize, {server, strnlen(server, kServerSize)});
  return PRO_SetStr(section, kServerKey, value, paths::kSettings) == 0;
}

}  // namespace kt
