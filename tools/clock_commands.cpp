// clock_commands.cpp - time servers, time zones, daylight saving.
#include <ktcomm/settings.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/string_buffer.h"
#include "tools/edit_lock.h"
#include "tools/fields.h"
#include "tools/ktctl.h"
#include "tools/number.h"
#include "tools/settings_lock.h"
#include "tools/settings_write.h"

namespace kt::tools {
namespace {

constexpr char kSystem[] = "SYSTEM";

int system_not_written() {
  return not_written(paths::kSettings, Section(kSystem));
}

// ---- Time servers ---------------------------------------------------------

constexpr Field server_field(const char* name, size_t server) {
  return text_field(name, offsetof(NTPConf, servers) + server * KT_NTP_TEXT_SIZE, KT_NTP_TEXT_SIZE);
}

constexpr Field kMode = number_field("mode", offsetof(NTPConf, mode), KT_NTP_OFF, KT_NTP_SCHEDULED);
constexpr Field kServers[] = {server_field("server1", 0), server_field("server2", 1),
                              server_field("server3", 2)};
constexpr Field kUpdatedTime =
    number_field("updated_time", offsetof(NTPConf, updated_time), 10000101, 99991231);
constexpr Field kDate = number_field("date", offsetof(NTPConf, date), -1, 7);
constexpr Field kHour = number_field("hour", offsetof(NTPConf, hour), 0, 23);
constexpr Field kMinute = number_field("minute", offsetof(NTPConf, minute), 0, 59);
constexpr Field kRetry = text_field("retry", offsetof(NTPConf, retry), KT_NTP_TEXT_SIZE);

constexpr Field kFields[] = {kMode, kServers[0], kServers[1], kServers[2], kUpdatedTime,
                             kDate, kHour,       kMinute,     kRetry};
constexpr Field kStoredWhenOn[] = {kServers[1], kServers[2], kDate, kHour, kMinute, kRetry};

bool differ(const Field& field, const NTPConf& one, const NTPConf& other) {
  return !are_equal({&field, 1}, &one, &other);
}

// Programs take hosts and the retry setting from the settings to command lines.
constexpr char kHostCharacters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-.";
constexpr char kRetryCharacters[] = "0123456789/";

bool is_made_of(const char* text, const char* characters) {
  return text[strspn(text, characters)] == '\0';
}

int check_texts(const NTPConf& before, const NTPConf& after) {
  for (int i = 0; i < KT_NTP_SERVERS; ++i) {
    const bool is_checked = i == 0 && after.mode != KT_NTP_OFF;  // by the writer
    if (!is_checked && !differ(kServers[i], before, after)) continue;
    const char* const host = after.servers[i];
    if (is_made_of(host, kHostCharacters) && host[0] != '-') continue;
    return fail(kRefused, "%s: %s: a host is made of letters, digits, _ . and -, the first no -",
                kServers[i].name, host);
  }
  if (differ(kRetry, before, after) && !is_made_of(after.retry, kRetryCharacters)) {
    return fail(kRefused, "%s: %s: digits and / are wanted", kRetry.name, after.retry);
  }
  return kDone;
}

int check_updated_time(const NTPConf& before, const NTPConf& after) {
  const int month = after.updated_time / 100 % 100;
  const int day = after.updated_time % 100;
  const bool is_date = month >= 1 && month <= 12 && day >= 1 && day <= 31;
  if (is_date || !differ(kUpdatedTime, before, after)) return kDone;
  return fail(kRefused, "%s: %d: a date YYYYMMDD is wanted", kUpdatedTime.name, after.updated_time);
}

// What stands in the settings already may be anything, but the writer looks at it, too.
int check_time(const NTPConf& conf) {
  for (const Field* const field : {&kDate, &kHour, &kMinute}) {
    int number;
    memcpy(&number, reinterpret_cast<const char*>(&conf) + field->offset, sizeof number);
    if (number >= field->lowest && number <= field->highest) continue;
    return fail(kRefused, "%s: %d is stored: a number from %d to %d has to be set", field->name,
                number, field->lowest, field->highest);
  }
  return kDone;
}

// The writer would drop such a change without a word.
int check_stored_when_off(const NTPConf& before, const NTPConf& after) {
  for (const Field& field : kStoredWhenOn) {
    if (!differ(field, before, after)) continue;
    return fail(kRefused, "%s: with mode 0 only %s and %s can be set", field.name, kServers[0].name,
                kUpdatedTime.name);
  }
  return kDone;
}

int check_change(const NTPConf& before, const NTPConf& after) {
  int code = check_texts(before, after);
  if (code == kDone) code = check_updated_time(before, after);
  if (code != kDone) return code;
  return after.mode == KT_NTP_OFF ? check_stored_when_off(before, after) : check_time(after);
}

int read_ntp(NTPConf& conf) {
  SettingsLock lock;
  lock.try_for_a_moment();
  unique_file settings;
  const int unfit = open_settings(paths::kSettings, settings);
  if (unfit != kDone) return unfit;
  return NTPReadData(&conf) == 0 ? kDone : fail_errno(paths::kSettings);
}

int store(const NTPConf& wanted) {
  const bool done = NTPWriteData(&wanted) == 0;
  NTPConf stored;
  const int unread = read_ntp(stored);
  if (unread != kDone) return unread;
  if (!are_equal(kFields, &wanted, &stored)) return system_not_written();
  if (done) return kDone;
  return fail(kSystemError, "%s: the settings are stored, but its job could not be changed",
              paths::kCrontab);
}

// ---- Time zones -----------------------------------------------------------

// "UTC+5:45"
StringBuffer<31> offset_text(int hundredths) {
  const int minutes = abs(hundredths) * 60 / 100;
  StringBuffer<31> text;
  text.append_format("UTC%c%d:%02d", hundredths < 0 ? '-' : '+', minutes / 60, minutes % 60);
  return text;
}

int replacement_of(int index) {
  TIME_TimezoneCorrect(&index);
  return index;
}

// ---- Daylight saving ------------------------------------------------------

int read_daylight_saving(bool& on) {
  SettingsLock lock;
  lock.try_for_a_moment();
  unique_file settings;
  const int unfit = open_settings(paths::kSettings, settings);
  if (unfit != kDone) return unfit;
  int enabled = 0;
  if (ReadDayLightSaving(&enabled) != 0) return fail_errno(paths::kSettings);
  on = enabled != 0;
  return kDone;
}

int store_daylight_saving(bool wanted) {
  bool on = false;
  int code = read_daylight_saving(on);
  if (code != kDone || on == wanted) return code;
  code = wait_until_unlocked();
  if (code != kDone) return code;
  const Uninterrupted uninterrupted;
  const bool done = WriteDayLightSaving(wanted ? 1 : 0) == 0;
  code = read_daylight_saving(on);
  if (code != kDone) return code;
  return done && on == wanted ? kDone : system_not_written();
}

}  // namespace

int show_ntp(const Request&) {
  NTPConf conf;
  const int unread = read_ntp(conf);
  if (unread != kDone) return unread;
  print_fields(kFields, &conf);
  return kDone;
}

int set_ntp(const Request& request) {
  const std::span assignments(request.arguments, static_cast<size_t>(request.count));
  FlockFile lock;  // the job is in the crontab
  int code = lock_edit(lock, paths::kCrontabEditLock);
  if (code == kDone) code = wait_until_unlocked();
  if (code != kDone) return code;
  const Uninterrupted uninterrupted;
  NTPConf before;
  code = read_ntp(before);
  if (code != kDone) return code;
  NTPConf after = before;
  code = set_fields(kFields, assignments, &after);
  if (code == kDone) code = check_change(before, after);
  return code == kDone ? store(after) : code;
}

int sync_ntp(const Request&) {
  // Nobody hears of a failure in the background.
  if (::access(paths::kTimeControl, X_OK) != 0) return fail_errno(paths::kTimeControl);
  if (SetNTP() == 0) return kDone;
  return fail(kSystemError, "%s: not started: no shell", paths::kTimeControl);
}

int list_zones(const Request&) {
  (void)printf("INDEX  OFFSET\n");
  for (int index = 0; index < KT_TIME_ZONES; ++index) {
    const auto offset = offset_text(kt_time_zone[index]);
    (void)printf("%5d  ", index);
    if (TIME_TimezoneCheck(index) == 0) {
      (void)printf("%s\n", offset.c_str());
    } else {
      (void)printf("%-9s  reserved: use %d\n", offset.c_str(), replacement_of(index));
    }
  }
  return kDone;
}

int check_zone(const Request& request) {
  const auto index = parse_number(request.arguments[0]);
  if (!index) return fail(kUsage, "INDEX: %s: a number is wanted", request.arguments[0]);
  if (TIME_TimezoneCheck(*index) == 0) {
    (void)printf("%d: %s\n", *index, offset_text(kt_time_zone[*index]).c_str());
    return kDone;
  }
  const bool is_there = *index >= 0 && *index < KT_TIME_ZONES;
  (void)printf("%d: %s: use %d\n", *index, is_there ? "reserved" : "no such zone",
               replacement_of(*index));
  return is_there ? kRefused : kNotFound;
}

int daylight_saving(const Request& request) {
  const char* const wanted = request.count != 0 ? request.arguments[0] : nullptr;
  if (wanted == nullptr) {
    bool on = false;
    const int unread = read_daylight_saving(on);
    if (unread == kDone) (void)puts(on ? "on" : "off");
    return unread;
  }
  const bool on = strcmp(wanted, "on") == 0;
  if (!on && strcmp(wanted, "off") != 0) return fail(kUsage, "%s: on or off is wanted", wanted);
  return store_daylight_saving(on);
}

}  // namespace kt::tools
