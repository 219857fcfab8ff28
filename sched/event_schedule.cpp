#include <stddef.h>
#include <string.h>

#include "base/paths.h"
#include "base/text.h"
#include "base/unique_file.h"
#include "ktcomm/config.h"
#include "ktcomm/sched.h"
#include "sched/stored_schedule.h"

// Programs share this record.
static_assert(offsetof(EvtSchRecord, joined) == 0 && offsetof(EvtSchRecord, mode) == 256 &&
              offsetof(EvtSchRecord, items) == 260 && offsetof(EvtSchRecord, use_items) == 512 &&
              sizeof(EvtSchRecord) == 516);
static_assert(sizeof EvtSchRecord::items < sizeof EvtSchRecord::joined,
              "ten items, each with ';' for its NUL, fit joined");

namespace kt {
namespace {

int read_list(const SchedulePlace& place, EvtSchRecord* list) {
  if (list == nullptr) return -1;
  const unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return -1;
  list->mode = read_stored_mode(place, settings.get());
  StringBuffer<sizeof list->joined - 1> joined;
  memset(list->items, 0, sizeof list->items);
  int number = 0;
  for (auto& item : list->items) {
    StoredItem text;
    read_stored_item(place, ++number, text, settings.get());
    copy_cut(item, sizeof item, text);
    if (item[0] == '\0') continue;
    joined.append(item);
    joined.append(";");
  }
  memset(list->joined, 0, sizeof list->joined);
  copy_cut(list->joined, sizeof list->joined, joined.view());
  return 0;
}

[[nodiscard]] bool save_item(const SchedulePlace& place, int number, const char* item) {
  const ItemKey key = stored_item_key(place, number);
  return PRO_SetStr(place.section, key.c_str(), item, paths::kSettings) == 0;
}

[[nodiscard]] bool save_items(const SchedulePlace& place, const EvtSchRecord& list) {
  bool saved = true;
  int number = 0;
  for (const auto& item : list.items) {
    StoredItem text;
    copy_cut(text, sizeof text, {item, strnlen(item, sizeof item)});
    saved = save_item(place, ++number, text) && saved;
  }
  return saved;
}

[[nodiscard]] bool save_joined(const SchedulePlace& place, EvtSchRecord& list) {
  list.joined[sizeof list.joined - 1] = '\0';
  bool saved = true;
  char* rest = nullptr;
  const char* piece = strtok_r(list.joined, ";", &rest);
  for (int number = 1; number <= kStoredItems; ++number) {
    saved = save_item(place, number, piece != nullptr ? piece : "") && saved;
    if (piece != nullptr) piece = strtok_r(nullptr, ";", &rest);
  }
  return saved;
}

int save_list(const SchedulePlace& place, EvtSchRecord& list) {
  const bool saved = list.use_items != 0 ? save_items(place, list) : save_joined(place, list);
  return saved ? 0 : -1;
}

}  // namespace
}  // namespace kt

using namespace kt;

int ReadEvtSch(EvtSchRecord* list) {
  return read_list(kEventSchedule, list);
}

int ReadAceSch(EvtSchRecord* list) {
  return read_list(kVideoSchedule, list);
}

// The stored mode stays here, and SaveAceSch writes it; programs rely on both.
int SaveEvtSch(EvtSchRecord* list) {
  return list != nullptr ? save_list(kEventSchedule, *list) : -1;
}

int SaveAceSch(EvtSchRecord* list) {
  if (list == nullptr) return -1;
  const SchedulePlace& place = kVideoSchedule;
  if (PRO_SetInt(place.section, place.mode, list->mode, paths::kSettings) != 0) return -1;
  return save_list(place, *list);
}
