// syslog_settings.h - what the two log settings sections have in common.
#ifndef KTCOMM_LOG_SYSLOG_SETTINGS_H
#define KTCOMM_LOG_SYSLOG_SETTINGS_H

#include <stddef.h>
#include <stdio.h>

namespace kt {

constexpr size_t kServerSize = 65;  // a syslog server's name of 64 characters
constexpr int kSyslogPort = 514;

// The number under `key`, `fallback` when it is missing.
[[nodiscard]] int read_number(const char* section, const char* key, int fallback, FILE* settings);

// The key "syslog_server", cut to 64 characters; empty when missing.
void read_server(const char* section, char (&server)[kServerSize], FILE* settings);

// Write one key of the settings file; false when that fails. A server without a
// NUL in its field is written as 64 characters.
[[nodiscard]] bool write_number(const char* section, const char* key, int value);
[[nodiscard]] bool write_server(const char* section, const char (&server)[kServerSize]);

}  // namespace kt

#endif
