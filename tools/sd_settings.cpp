// sd_settings.cpp - what is recorded to the SD card, and when.
#include <ktcomm/sched.h>
#include <ktcomm/sdcard.h>
#include <limits.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <span>

#include "base/paths.h"
#include "base/text.h"
#include "base/unique_file.h"
#include "tools/fields.h"
#include "tools/ktctl.h"
#include "tools/number.h"
#include "tools/settings_input.h"
#include "tools/settings_lock.h"
#include "tools/settings_write.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

constexpr int kMinute_s = 60;
constexpr unsigned long long kMebibyte = 1 << 20;

// The record as fields. Files may be larger than an `int` can tell.
struct Form {
  int rec_enable;
  int stream_id;
  int disk_ctrl;
  int file_ctrl;
  int duration_s;
  char file_size_bytes[21];
  char schedule[KT_SD_SCHEDULE_ITEMS][KT_SD_SCHEDULE_ITEM_SIZE];
};

constexpr Field item_field(const char* name, size_t item) {
  return text_field(name, offsetof(Form, schedule) + item * KT_SD_SCHEDULE_ITEM_SIZE,
                    KT_SD_SCHEDULE_ITEM_SIZE);
}

constexpr Field kFields[] = {
    flag_field("rec_enable", offsetof(Form, rec_enable)),
    number_field("stream_id", offsetof(Form, stream_id), 0, INT_MAX),
    number_field("disk_ctrl", offsetof(Form, disk_ctrl), 0, INT_MAX),
    number_field("file_ctrl", offsetof(Form, file_ctrl), 0, INT_MAX),
    number_field("duration_s", offsetof(Form, duration_s), 0, INT_MAX),
    text_field("file_size_bytes", offsetof(Form, file_size_bytes), sizeof(Form::file_size_bytes)),
    item_field("schedule1", 0),
    item_field("schedule2", 1),
    item_field("schedule3", 2),
    item_field("schedule4", 3),
    item_field("schedule5", 4),
    item_field("schedule6", 5),
    item_field("schedule7", 6),
    item_field("schedule8", 7),
    item_field("schedule9", 8),
    item_field("schedule10", 9),
};
static_assert(KT_SD_SCHEDULE_ITEMS == 10);

Form form_of(const SdRecordConfig& config) {
  Form form = {};
  form.rec_enable = config.rec_enable;
  form.stream_id = config.stream_id;
  form.disk_ctrl = config.disk_ctrl;
  form.file_ctrl = config.file_ctrl;
  form.duration_s = config.duration;
  (void)snprintf(form.file_size_bytes, sizeof form.file_size_bytes, "%llu", config.file_size);
  memcpy(form.schedule, config.schedule, sizeof form.schedule);
  return form;
}

int read_form(Form& form) {
  SettingsLock lock;
  lock.try_for_a_moment();
  unique_file settings;
  const int unfit = open_settings(paths::kSettings, settings);
  if (unfit != kDone) return unfit;
  SdRecordConfig config = {};
  if (MMCSDReadConfigData(&config) != 0) return fail_errno(paths::kSettings);
  form = form_of(config);
  return kDone;
}

// "D,HH:MM,HH:MM" and nothing else, and all of it in range.
bool is_item(const char* text) {
  constexpr char kForm[] = "0,00:00,00:00";
  for (size_t i = 0; i < sizeof kForm; ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kForm[i] == '0' ? !digit : text[i] != kForm[i]) return false;
  }
  return check_sche_item(text, 0) == 0;
}

// What stands in the settings already may be anything.
int check_changes(const Form& before, const Form& after) {
  if (after.duration_s != before.duration_s && after.duration_s % kMinute_s != 0) {
    return fail(kRefused, "duration_s: %d: whole minutes are wanted", after.duration_s);
  }
  if (strcmp(after.file_size_bytes, before.file_size_bytes) != 0) {
    const auto size = parse_number<unsigned long long>(after.file_size_bytes);
    if (!size || *size % kMebibyte != 0 || *size / kMebibyte > INT_MAX) {
      return fail(kRefused, "file_size_bytes: %s: a multiple of %llu is wanted",
                  after.file_size_bytes, kMebibyte);
    }
  }
  for (size_t i = 0; i < KT_SD_SCHEDULE_ITEMS; ++i) {
    const char* const item = after.schedule[i];
    if (item[0] == '\0' || strcmp(item, before.schedule[i]) == 0 || is_item(item)) continue;
    return fail(kRefused,
                "schedule%zu: %s: DAY,HH:MM,HH:MM is wanted, DAY from 1 (Sunday) to 9 (every day), "
                "the end after the start, at most 24:00",
                i + 1, item);
  }
  return kDone;
}

// Items behind an empty one would not be stored.
void pack_schedule(Form& form) {
  size_t used = 0;
  for (const auto& item : form.schedule) {
    if (item[0] == '\0') continue;
    char* const place = form.schedule[used++];
    if (place != item) memcpy(place, item, sizeof item);
  }
  for (; used < KT_SD_SCHEDULE_ITEMS; ++used)
    memset(form.schedule[used], 0, sizeof form.schedule[used]);
}

int store(const Request& request, const Form& before, const Form& form) {
  if (request.dry_run()) return would_set("[SDCARD]", kFields, &before, &form);
  if (are_equal(kFields, &before, &form)) return kDone;
  SdRecordConfig config = {};
  config.rec_enable = form.rec_enable;
  config.stream_id = form.stream_id;
  config.disk_ctrl = form.disk_ctrl;
  config.file_ctrl = form.file_ctrl;
  config.duration = form.duration_s;
  config.file_size = parse_number<unsigned long long>(form.file_size_bytes).value_or(0);
  memcpy(config.schedule, form.schedule, sizeof config.schedule);
  const Uninterrupted uninterrupted;
  Form stored;
  // A write does not tell whether its copy command found room on the disk.
  if (MMCSDWriteConfigData(&config) != 0 || read_form(stored) != kDone ||
      !are_equal(kFields, &form, &stored)) {
    return not_written(paths::kSettings, Section("SDCARD"));
  }
  return kDone;
}

void print_form(const Request& request, const Form& form) {
  constexpr size_t kNumbers = 5;
  Printer printer(request);
  if (printer.plain()) {
    print_fields(printer, kFields, &form);
    return;
  }
  print_fields(printer, {kFields, kNumbers}, &form);
  printer.number("file_size_bytes", parse_number<long long>(form.file_size_bytes).value_or(0));
  printer.begin_list("schedule");
  for (const auto& item : form.schedule) {
    if (item[0] != '\0') printer.text(nullptr, item);
  }
  printer.end_list();
}

}  // namespace

int card_settings(const Request& request) {
  Form form = {};
  int code = request.count != 0 ? wait_until_unlocked() : kDone;
  if (code == kDone) code = read_form(form);
  if (code != kDone) return code;
  if (request.count == 0) {
    print_form(request, form);
    return kDone;
  }
  const Form before = form;
  code = set_fields(kFields, {request.arguments, static_cast<size_t>(request.count)}, &form);
  if (code == kDone) code = check_changes(before, form);
  if (code != kDone) return code;
  pack_schedule(form);
  return store(request, before, form);
}

}  // namespace kt::tools
