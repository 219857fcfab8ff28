#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/paths.h"
#include "ktcomm/sdcard.h"
#include "sdcard/mac_address.h"

namespace kt {
namespace {

// True also when somebody else makes it in the same moment.
[[nodiscard]] bool make_directory(const char* path) {
  // Without execute bits: they mean nothing on the card, where vfat gives every
  // directory the mode of the mount.
  constexpr mode_t kMode = 0666;
  return ::access(path, F_OK) == 0 || ::mkdir(path, kMode) == 0 || ::access(path, F_OK) == 0;
}

}  // namespace
}  // namespace kt

char* mmcsd_get_rec_dir(char* out) {
  unsigned char mac[kt::kMacBytes];
  char digits[2 * kt::kMacBytes + 1];
  if (out == nullptr || !kt::get_mac_address(mac) ||
      !kt::transcode_mac_to_string_by_separator(mac, '\0', digits, sizeof digits)) {
    return nullptr;
  }
  (void)snprintf(out, KT_SD_REC_DIR_SIZE, "%s/%s", kt::paths::kRecordings, digits);
  return out;
}

int mmcsd_check_ready(void) {
  char directory[KT_SD_REC_DIR_SIZE];
  if (mmcsd_get_rec_dir(directory) == nullptr) return -1;
  return kt::make_directory(kt::paths::kRecordings) && kt::make_directory(directory) ? 0 : -1;
}
