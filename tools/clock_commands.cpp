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
#include "tools/would_edit_crontab.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

constexpr char kSystem[] = "SYSTEM";
constexpr char kJob[] = "ntp_setcron";

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
  constexpr struct {
    const Field& field;
    const char* key;
    int NTPConf::*number;
  } kStored[] = {{kDate, "ntp_date", &NTPConf::date},
                 {kHour, "ntp_hour", &NTPConf::hour},
                 {kMinute, "ntp_min", &NTPConf::minute}};
  for (const auto& [field, key, place] : kStored) {
    const int number = conf.*place;
    if (number >= field.lowest && number <= field.highest) continue;
    return fail(kRefused, "%s: [%s] %s: %d is stored: %s has to be set, from %d to %d",
                paths::kSettings, kSystem, key, number, field.name, field.lowest, field.highest);
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

// When the job runs; empty where it does not.
StringBuffer<63> job_of(const NTPConf& conf) {
  StringBuffer<63> line;
  if (conf.mode != KT_NTP_SCHEDULED || conf.date == -1) return line;
  line.append_format("%d %d * * ", conf.minute, conf.hour);
  if (conf.date == 0) {
    line.append("*");
  } else {
    line.append_format("%d", conf.date % 7);
  }
  line.append_format(" root %s", kJob);
  return line;
}

int would_store(const NTPConf& before, const NTPConf& wanted) {
  int told = tell_field_changes("[SYSTEM]", kFields, &before, &wanted);
  const auto job = job_of(wanted);
  int code = tell_crontab_edit({.line = {}, .command = kJob, .added = job.view()}, told);
  // One to try again is given up.
  if (code == kDone && wanted.mode != KT_NTP_OFF && ::access(paths::kTimeRetry, F_OK) == 0) {
    (void)would("remove %s", paths::kTimeRetry);
    ++told;
    code = tell_crontab_edit({.line = {}, .command = paths::kTimeControl, .added = {}}, told);
  }
  return code == kDone && told == 0 ? would_change_nothing() : code;
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

bool is_zone(int index) {
  return index >= 0 && index < KT_TIME_ZONES;
}

// A zone that there is not has no offset.
void print_zone(Printer& printer, int index) {
  printer.number("index", index);
  if (is_zone(index)) {
    printer.text("offset", offset_text(kt_time_zone[index]).view());
    printer.number("offset_minutes", kt_time_zone[index] * 60 / 100);
  }
  printer.flag("usable", TIME_TimezoneCheck(index) == 0);
  printer.number("use", replacement_of(index));
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

int store_daylight_saving(const Request& request, bool wanted) {
  bool on = false;
  int code = wait_until_unlocked();
  if (code == kDone) code = read_daylight_saving(on);
  if (code != kDone) return code;
  if (request.dry_run()) {
    return on == wanted ? would_change_nothing()
                        : would("turn daylight saving %s", wanted ? "on" : "off");
  }
  if (on == wanted) return kDone;
  const Uninterrupted uninterrupted;
  const bool done = WriteDayLightSaving(wanted ? 1 : 0) == 0;
  code = read_daylight_saving(on);
  if (code != kDone) return code;
  return done && on == wanted ? kDone : system_not_written();
}

}  // namespace

int show_ntp(const Request& request) {
  NTPConf conf;
  const int unread = read_ntp(conf);
  if (unread != kDone) return unread;
  print_fields(request, kFields, &conf);
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
  if (code != kDone) return code;
  return request.dry_run() ? would_store(before, after) : store(after);
}

int sync_ntp(const Request& request) {
  // Nobody hears of a failure in the background.
  if (::access(paths::kTimeControl, X_OK) != 0) return fail_errno(paths::kTimeControl);
  if (request.dry_run()) return would("run %s -n in the background", paths::kTimeControl);
  if (SetNTP() == 0) return kDone;
  return fail(kSystemError, "%s: not started: no shell", paths::kTimeControl);
}

int list_zones(const Request& request) {
  if (request.for_programs()) {
    Printer printer(request);
    printer.begin_list("zones");
    for (int index = 0; index < KT_TIME_ZONES; ++index) {
      printer.begin_object(nullptr);
      print_zone(printer, index);
      printer.end_object();
    }
    printer.end_list();
    return kDone;
  }
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
  const bool may_be_used = TIME_TimezoneCheck(*index) == 0;
  Printer printer(request);
  if (!printer.plain()) {
    print_zone(printer, *index);
  } else if (may_be_used) {
    (void)printf("%d: %s\n", *index, offset_text(kt_time_zone[*index]).c_str());
  } else {
    (void)printf("%d: %s: use %d\n", *index, is_zone(*index) ? "reserved" : "no such zone",
                 replacement_of(*index));
  }
  if (may_be_used) return kDone;
  return is_zone(*index) ? kRefused : kNotFound;
}

int daylight_saving(const Request& request) {
  const char* const wanted = request.count != 0 ? request.arguments[0] : nullptr;
  if (wanted == nullptr) {
    bool on = false;
    const int unread = read_daylight_saving(on);
    if (unread != kDone) return unread;
    Printer printer(request);
    if (printer.plain()) {
      (void)puts(on ? "on" : "off");
    } else {
      printer.flag("dst", on);
    }
    return kDone;
  }
  const bool on = strcmp(wanted, "on") == 0;
  if (!on && strcmp(wanted, "off") != 0) return fail(kUsage, "%s: on or off is wanted", wanted);
  return store_daylight_saving(request, on);
}

}  // namespace kt::tools
