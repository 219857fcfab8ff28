#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <string_view>

#include "base/line_reader.h"
#include "base/paths.h"
#include "base/unique_file.h"
#include "ktcomm/sdcard.h"

static_assert(offsetof(SdCardStatus, state) == 0 && offsetof(SdCardStatus, fs_type) == 4 &&
              offsetof(SdCardStatus, total_bytes) == 8 &&
              offsetof(SdCardStatus, used_bytes) == 16 &&
              offsetof(SdCardStatus, free_bytes) == 24 &&
              offsetof(SdCardStatus, used_percent) == 32 &&
              offsetof(SdCardStatus, reserved) == 36 && sizeof(SdCardStatus) == 40);

namespace kt {
namespace {

constexpr unsigned kFatType = 0x4D44;
constexpr char kFatName[] = "vfat";
constexpr int kForce = 1;
constexpr size_t kMountsLine = 256;
constexpr size_t kPartitionsLine = 128;
constexpr char kCardName[] = "mmcblk0";  // in /proc/partitions
constexpr unsigned long long kPartitionsBlock = 1024;

void fill_sizes(SdCardStatus& status, const struct statfs& fs) {
  const unsigned long long block_size = static_cast<unsigned long long>(fs.f_bsize);
  const unsigned long long blocks = fs.f_blocks;
  const unsigned long long used = blocks - fs.f_bfree;
  status.total_bytes = block_size * blocks;
  status.free_bytes = block_size * fs.f_bfree;
  status.used_bytes = status.total_bytes - status.free_bytes;
  status.used_percent = blocks != 0 ? static_cast<int>(used * 100 / blocks) : 0;
}

int find_state(SdCardStatus& status) {
  if (::access(paths::kCard, F_OK) != 0) return KT_SD_NO_CARD;
  if (::access(paths::kCardFormatLock, F_OK) == 0) return KT_SD_FORMATTING;
  if (::access(paths::kCardMount, R_OK) != 0) return KT_SD_NO_CARD;
  struct statfs fs = {};
  if (::statfs(paths::kCardMount, &fs) != 0) return KT_SD_NOT_MOUNTED;
  status.fs_type = static_cast<unsigned>(fs.f_type);
  if (status.fs_type != kFatType) return KT_SD_NOT_MOUNTED;
  fill_sizes(status, fs);
  return ::access(paths::kCardMount, W_OK) == 0 ? KT_SD_READY : KT_SD_READ_ONLY;
}

}  // namespace
}  // namespace kt

using namespace kt;

int mmcsd_get_sd_info(SdCardStatus* status) {
  if (status == nullptr) return -1;
  *status = {};
  status->state = find_state(*status);
  return 0;
}

unsigned long long mmcsd_get_real_total_size(void) {
  const unique_file partitions = open_file(paths::kPartitions, "re");
  char line[kPartitionsLine];
  while (partitions.ok() && read_line(partitions.get(), line, sizeof line) != 0) {
    char* rest = nullptr;  // major, minor, blocks, name
    (void)strtok_r(line, " \n", &rest);
    (void)strtok_r(nullptr, " \n", &rest);
    const char* const blocks = strtok_r(nullptr, " \n", &rest);
    const char* const name = strtok_r(nullptr, " \n", &rest);
    if (name == nullptr || strcmp(name, kCardName) != 0) continue;
    const long count = strtol(blocks, nullptr, 10);
    return count > 0 ? static_cast<unsigned long long>(count) * kPartitionsBlock : 0;
  }
  return 0;
}

int sd_is_mounted(void) {
  const unique_file mounts = open_file(paths::kMounts, "re");
  char line[kMountsLine];
  while (mounts.ok()) {
    const size_t length = read_line(mounts.get(), line, sizeof line);
    if (length == 0) break;
    if (std::string_view(line, length).find(paths::kCardMount) != std::string_view::npos) return 1;
  }
  return 0;
}

int mmcsd_sd_u_mount(int operation) {
  if (operation == KT_SD_UNMOUNT) return ::umount2(paths::kCardMount, kForce) == 0 ? 0 : -1;
  if (operation != KT_SD_MOUNT) return -1;
  const bool has_partition = ::access(paths::kCardPartition, F_OK) == 0;
  const char* const device = has_partition ? paths::kCardPartition : paths::kCard;
  return ::mount(device, paths::kCardMount, kFatName, 0, nullptr) == 0 ? 0 : -1;
}
