#include <stddef.h>
#include <stdio.h>

#include "base/paths.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "ktcomm/config.h"
#include "ktcomm/log.h"
#include "ktcomm/util_process.h"
#include "sched/event_entry.h"

// Programs share these records.
static_assert(offsetof(EventEntry, name) == 0 && offsetof(EventEntry, input_source) == 32 &&
              offsetof(EventEntry, enabled) == 36 && offsetof(EventEntry, type) == 40 &&
              offsetof(EventEntry, reserved1) == 44 && offsetof(EventEntry, interval) == 48 &&
              offsetof(EventEntry, reserved2) == 52 && offsetof(EventEntry, actions) == 96 &&
              offsetof(EventEntry, format) == 100 && offsetof(EventEntry, is_jpeg) == 104 &&
              offsetof(EventEntry, reserved3) == 108 &&
              offsetof(EventEntry, input_source_copy) == 120 &&
              offsetof(EventEntry, reserved4) == 124 && offsetof(EventEntry, jpeg_fps) == 128 &&
              offsetof(EventEntry, rec1) == 132 && offsetof(EventEntry, rec2) == 136 &&
              offsetof(EventEntry, rec3) == 140 && offsetof(EventEntry, schedule) == 144 &&
              sizeof(EventEntry) == 276);
static_assert(offsetof(EventConfig, events) == 0 && offsetof(EventConfig, trigger) == 2760 &&
              offsetof(EventConfig, jpeg_fps) == 2764 && sizeof(EventConfig) == 2768);

namespace kt {
namespace {

constexpr char kSection[] = "EVENT";
constexpr char kTrigger[] = "event_trigger";
constexpr char kJpegFps[] = "event_jpeg_fps";
constexpr int kDefaultJpegFps = 5;

constexpr char kDaemon[] = "hydra";
constexpr int kReload = 10;  // the daemon's own meaning of this signal

constexpr int kTraceProgress = 8;
constexpr int kTraceModule = 8;

StringBuffer<14> entry_key(int number) {
  StringBuffer<14> key;
  key.append_format("event%d_entry", number);
  return key;
}

void read_event(int number, int jpeg_fps, EventEntry& event, FILE* settings) {
  char entry[kEntrySize] = {};  // one of the full length is stored whole
  (void)PRO_GetStr(kSection, entry_key(number).c_str(), entry, sizeof entry - 1, settings);
  if (entry[0] == '\0') return;
  parse_event_entry(entry, event);
  event.jpeg_fps = jpeg_fps;
}

[[nodiscard]] bool save_event(int number, const EventEntry& event) {
  char entry[kEntrySize] = {};
  if (event_name(event).size() != 0) compose_event_entry(event, entry);
  return PRO_SetStr(kSection, entry_key(number).c_str(), entry, paths::kSettings) == 0;
}

}  // namespace
}  // namespace kt

using namespace kt;

int ReadEventConf(EventConfig* config) {
  if (config == nullptr) return -1;
  const unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return -1;
  *config = {};
  config->jpeg_fps = kDefaultJpegFps;
  (void)PRO_GetInt(kSection, kTrigger, &config->trigger, settings.get());  // 0 when missing
  (void)PRO_GetInt(kSection, kJpegFps, &config->jpeg_fps, settings.get());
  int number = 0;
  for (EventEntry& event : config->events) {
    read_event(++number, config->jpeg_fps, event, settings.get());
  }
  return 0;
}

int SaveEventConf(const EventConfig* config) {
  if (config == nullptr) return -1;
  bool saved = PRO_SetInt(kSection, kTrigger, config->trigger, paths::kSettings) == 0;
  saved = PRO_SetInt(kSection, kJpegFps, config->jpeg_fps, paths::kSettings) == 0 && saved;
  int number = 0;
  for (const EventEntry& event : config->events) {
    (void)KT_DEBUGn_in(kTraceProgress, kTraceModule, 0, "%s(%d):event_name=%s\n", __func__,
                       __LINE__, event_name(event).c_str());
    saved = save_event(++number, event) && saved;
  }
  return saved ? 0 : -1;
}

int RestartEvent(void) {
  return SendSignal2AppsBySpecFile(kDaemon, kReload, paths::kHydraLock);
}

int check_event_type_schedule(unsigned type, EventConfig* config) {
  if (config == nullptr || config->trigger == 0) return 0;
  for (EventEntry& event : config->events) {
    if (static_cast<unsigned>(event.type) == type && event.enabled != 0 &&
        chk_sch_from_mm(&event.schedule) == 1) {
      return 1;
    }
  }
  return 0;
}
