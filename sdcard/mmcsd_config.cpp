#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include <string_view>

#include "base/paths.h"
#include "base/unique_file.h"
#include "ktcomm/config.h"
#include "ktcomm/sdcard.h"

static_assert(offsetof(SdRecordConfig, card) == 0 && offsetof(SdRecordConfig, rec_enable) == 40 &&
              offsetof(SdRecordConfig, reserved1) == 44 &&
              offsetof(SdRecordConfig, disk_ctrl) == 52 &&
              offsetof(SdRecordConfig, stream_id) == 56 &&
              offsetof(SdRecordConfig, file_ctrl) == 60 &&
              offsetof(SdRecordConfig, duration) == 64 &&
              offsetof(SdRecordConfig, reserved2) == 68 &&
              offsetof(SdRecordConfig, file_size) == 72 &&
              offsetof(SdRecordConfig, schedule) == 80 && sizeof(SdRecordConfig) == 224);

namespace kt {
namespace {

constexpr char kSection[] = "SDCARD";
constexpr char kScheduleKey[] = "sdcard_rec_schedule";
constexpr unsigned kMinute_s = 60;
constexpr int kMebibyteShift = 20;
constexpr size_t kScheduleText = 256;
constexpr size_t kItemLength = KT_SD_SCHEDULE_ITEM_SIZE - 1;

using Schedule = char[KT_SD_SCHEDULE_ITEMS][KT_SD_SCHEDULE_ITEM_SIZE];

[[nodiscard]] int read_number(const char* key, int fallback, FILE* settings) {
  int value = fallback;
  (void)PRO_GetInt(kSection, key, &value, settings);
  return value;
}

[[nodiscard]] bool write_number(const char* key, int value) {
  return PRO_SetInt(kSection, key, value, paths::kSettings) == 0;
}

[[nodiscard]] bool is_item(const char* text) {
  int day, begin_hour, begin_minute, end_hour, end_minute;
  return sscanf(text, "%d,%02d:%02d,%02d:%02d", &day, &begin_hour, &begin_minute, &end_hour,
                &end_minute) == 5;
}

// Items are found by their position in the text; what separates them is not
// looked at.
void read_schedule(Schedule& schedule, FILE* settings) {
  char text[kScheduleText] = {};
  (void)PRO_GetStr(kSection, kScheduleKey, text, sizeof text - 1, settings);
  const size_t length = strlen(text);
  memset(schedule, 0, sizeof schedule);
  size_t position = 0;
  for (char* const item : schedule) {
    if (position + kItemLength > length) break;
    if (is_item(text + position)) memcpy(item, text + position, kItemLength);
    position += KT_SD_SCHEDULE_ITEM_SIZE;
  }
}

// The text ends at the first empty item: what follows that one is not saved.
[[nodiscard]] bool write_schedule(const Schedule& schedule) {
  char text[kScheduleText] = {};
  char* position = text;
  for (const char* const item : schedule) {
    if (strnlen(item, KT_SD_SCHEDULE_ITEM_SIZE) >= kItemLength) {
      memcpy(position, item, kItemLength);
      position[kItemLength] = ';';
    }
    position += KT_SD_SCHEDULE_ITEM_SIZE;
  }
  return PRO_SetStr(kSection, kScheduleKey, text, paths::kSettings) == 0;
}

}  // namespace
}  // namespace kt

using namespace kt;

int MMCSDReadConfigData(SdRecordConfig* config) {
  if (config == nullptr) return -1;
  const unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return -1;
  (void)mmcsd_get_sd_info(&config->card);  // fails for a null record only
  FILE* const file = settings.get();
  config->rec_enable = read_number("sdcard_rec_enable", 0, file);
  read_schedule(config->schedule, file);
  config->disk_ctrl = read_number("sdcard_rec_disk_ctrl", 0, file);
  config->stream_id = read_number("sdcard_rec_stream_id", 1, file);
  config->file_ctrl = read_number("sdcard_rec_file_ctrl", 60, file);
  const int minutes = read_number("sdcard_rec_duration", 60, file);
  config->duration = static_cast<int>(static_cast<unsigned>(minutes) * kMinute_s);
  const int mebibytes = read_number("sdcard_rec_file_size", 10, file);
  config->file_size = static_cast<unsigned long long>(mebibytes) << kMebibyteShift;
  return 0;
}

int MMCSDWriteConfigData(const SdRecordConfig* config) {
  if (config == nullptr) return -1;
  const bool written =
      write_number("sdcard_rec_enable", config->rec_enable) &&
      write_number("sdcard_rec_stream_id", config->stream_id) &&
      write_number("sdcard_rec_disk_ctrl", config->disk_ctrl) &&
      write_number("sdcard_rec_file_ctrl", config->file_ctrl) &&
      write_number("sdcard_rec_duration", config->duration / static_cast<int>(kMinute_s)) &&
      write_number("sdcard_rec_file_size", static_cast<int>(config->file_size >> kMebibyteShift)) &&
      write_schedule(config->schedule);
  return written ? 0 : -1;
}
