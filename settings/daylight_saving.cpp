#include "base/paths.h"
#include "base/unique_file.h"
#include "ktcomm/settings.h"
#include "settings/system_section.h"

namespace kt {
namespace {

constexpr char kDaylightSaving[] = "daylight_saving";

}  // namespace
}  // namespace kt

using namespace kt;

int ReadDayLightSaving(int* enabled) {
  if (enabled == nullptr) return -1;
  const unique_file settings = open_file(paths::kSettings, "re");
  if (!settings.ok()) return -1;
  *enabled = kSystemSection.read_number(kDaylightSaving, 0, settings.get());
  return 0;
}

int WriteDayLightSaving(int enabled) {
  return kSystemSection.write_number(kDaylightSaving, enabled) ? 0 : -1;
}
