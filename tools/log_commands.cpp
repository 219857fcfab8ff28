// log_commands.cpp - the event log that users see.
#include <ktcomm/log.h>
#include <ktcomm/util_time.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <span>

#include "base/paths.h"
#include "base/unique_file.h"
#include "base/unique_malloc.h"
#include "tools/fields.h"
#include "tools/ktctl.h"
#include "tools/line_source.h"
#include "tools/log_message.h"
#include "tools/plain_text.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"
#include "tools/settings_write.h"
#include "tools/time_argument.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

int add_text(const Request& request) {
  const char* const text = request.arguments[0];
  if (request.count != 1) return fail(kUsage, "log add takes one TEXT; see ktctl log add --help");
  if (!check_plain("TEXT", text)) return kRefused;
  const size_t length = strlen(text);
  if (length == 0) return fail(kRefused, "TEXT: an entry has at least one character");
  if (length > kLongestEntry) {
    return fail(kRefused, "TEXT: %zu characters, %zu fit", length, kLongestEntry);
  }
  if (const int code = wait_for_log(request); code != kDone) return code;
  if (request.dry_run()) return would("add to %s: %s", paths::kEventLog, text);
  const Uninterrupted uninterrupted;
  if (AddLogDbg("%s", text) != 0) {
    return fail(kSystemError, "%s: not added: the log could not be written", paths::kEventLog);
  }
  return kDone;
}

// ---- Showing --------------------------------------------------------------

int print_for_people(const Request& request, long since) {
  char* text = nullptr;
  if (GetLogFromFile_in(&text, since, request.has(Option::kIso) ? 1 : 0) != 0) {
    return fail(kSystemError, "out of memory");
  }
  const unique_malloc<char> owner(text);
  for (const char* line = text; line != nullptr && *line != '\0';) {
    const size_t length = strcspn(line, "\n");
    print_plain({line, length});
    (void)putchar('\n');
    line += length + (line[length] != '\0' ? 1 : 0);
  }
  return kDone;
}

// With the times as they are stored, too, from a log that is read to the same end.
int print_for_programs(const Request& request, long since) {
  Printer printer(request);
  printer.begin_list("entries");
  const unique_file log = open_file(paths::kEventLog, "re");
  LineSource lines(log.get());
  while (log.ok() && lines.next()) {
    const char* const line = lines.line().data();  // a whole line, with a NUL behind it
    char* end = nullptr;
    const long time = strtol(line, &end, 10);
    const size_t message = static_cast<size_t>(end - line) + strspn(end, " ");
    if (end == line || message >= lines.line().size() || time < since) break;
    char date[64] = "";
    (void)get_time_iso8601_string(date, sizeof date, time);
    printer.begin_object(nullptr);
    printer.number("time", time);
    printer.text("date", date);
    printer.text("message", {line + message, lines.line().size() - message});
    printer.end_object();
  }
  printer.end_list();
  return kDone;
}

// ---- Settings -------------------------------------------------------------

constexpr Field kSettingsFields[] = {
    flag_field("log_mode", offsetof(SysLogData, log_mode)),
    number_field("log_level", offsetof(SysLogData, log_level), 0, 3),
    flag_field("syslog_mode", offsetof(SysLogData, syslog_mode)),
    text_field("syslog_server", offsetof(SysLogData, syslog_server),
               sizeof(SysLogData::syslog_server)),
    number_field("syslog_port", offsetof(SysLogData, syslog_port), 1, 65535),
};

int store_settings(const Request& request, const SysLogData& before, const SysLogData& wanted) {
  if (request.dry_run()) return would_set("[LOG]", kSettingsFields, &before, &wanted);
  if (are_equal(kSettingsFields, &before, &wanted)) return kDone;
  const Uninterrupted uninterrupted;
  SysLogData stored = {};
  // A write does not tell whether its copy command found room on the disk.
  if (SysLogWriteData(&wanted) != 0 || SysLogReadData(&stored) != 0 ||
      !are_equal(kSettingsFields, &wanted, &stored)) {
    return not_written(paths::kSettings, Section("LOG"));
  }
  return kDone;
}

}  // namespace

int add_log_entry(const Request& request) {
  if (request.has(Option::kMessage)) return add_message(request);
  if (request.has(Option::kLevel)) {
    return fail(kUsage, "--level is for messages of the catalogue, with --message");
  }
  return add_text(request);
}

int show_log(const Request& request) {
  long since = 0;
  if (const char* const wanted = request.value(Option::kSince)) {
    const auto time = parse_time(wanted, static_cast<long>(::time(nullptr)));
    if (!time) {
      return fail(kUsage,
                  "%s: no time: seconds since 1970, YYYY-MM-DD[ HH:MM[:SS]], or an age such as "
                  "90s, 30m, 2h, 1d is wanted",
                  wanted);
    }
    since = *time;
  }
  unique_file settings;  // they tell how dates are written
  const int unfit = open_settings(paths::kSettings, settings);
  if (unfit != kDone) return unfit;
  return request.for_programs() ? print_for_programs(request, since)
                                : print_for_people(request, since);
}

int clear_log(const Request& request) {
  if (const int code = wait_for_log(request); code != kDone) return code;
  if (request.dry_run()) return would("empty %s", paths::kEventLog);
  const Uninterrupted uninterrupted;
  if (ClearLog() == 0) return kDone;
  return fail(kSystemError,
              "%s: not cleared: it could not be opened, locked within a second or emptied",
              paths::kEventLog);
}

int log_settings(const Request& request) {
  SysLogData data = {};
  int code = request.count != 0 ? wait_until_unlocked() : kDone;
  if (code == kDone) code = read_log_settings(data);
  if (code != kDone) return code;
  if (request.count == 0) {
    print_fields(request, kSettingsFields, &data);
    return kDone;
  }
  const SysLogData before = data;
  const std::span assignments(request.arguments, static_cast<size_t>(request.count));
  code = set_fields(kSettingsFields, assignments, &data);
  if (code != kDone) return code;
  if (data.log_mode != 0 && data.syslog_mode != 0 && data.syslog_server[0] == '\0') {
    return fail(kRefused, "syslog_server: needed while log_mode and syslog_mode are both on");
  }
  return store_settings(request, before, data);
}

}  // namespace kt::tools
