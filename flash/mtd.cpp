#include <errno.h>
#include <ktcomm/flash.h>
#include <unistd.h>

#include "flash/mtd_request.h"
#include "flash/trace.h"

namespace {

constexpr unsigned kSizeUnknown = static_cast<unsigned>(-2);

struct SupportedNand {
  unsigned page_size, spare_size;
};

constexpr SupportedNand kSupported[] = {{256, 8}, {512, 16}, {2048, 64}, {4096, 128}};

bool is_supported(const mtd_info_user& info) {
  for (const SupportedNand& nand : kSupported) {
    if (info.writesize == nand.page_size && info.oobsize == nand.spare_size) return true;
  }
  return false;
}

// Calls `move` with the count done so far until `len` bytes are moved, nothing
// moves, or it fails. Only EAGAIN is tried again, once for each transfer: any
// other error, an interruption too, is the caller's to see.
template <typename F>
unsigned transfer(const char* caller, unsigned len, F move) {
  unsigned done = 0;
  while (done < len) {
    ssize_t count = move(done);
    if (count < 0 && errno == EAGAIN) {
      KT_TRACE_TWICE_OF(caller, Failure, "%s(%d)(%s(%d))Try again!!!\n");
      count = move(done);
    }
    if (count <= 0) break;
    done += static_cast<unsigned>(count);
  }
  return done;
}

}  // namespace

int kt_flash_get_mtdinfo(int fd, mtd_info_user* info) {
  if (fd < 1 || info == nullptr) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters\n");
    return -1;
  }
  if (kt::mtd_request(fd, MEMGETINFO, info) != 0) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Unable to get MTD device info\n");
    return -1;
  }
  // Before the type, so that a NOR device is reported by its odd geometry.
  if (!is_supported(*info)) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Unknow flash, oobsize=%u, writesize=%u\n", info->oobsize,
                   info->writesize);
    return -1;
  }
  if (info->type != MTD_NANDFLASH) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Unknow flash type, type=%d\n", info->type);
    return -1;
  }
  return 0;
}

int kt_flash_mtdinfo(int fd, int which) {
  mtd_info_user info = {};
  if (kt::mtd_request(fd, MEMGETINFO, &info) != 0) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Unable to get MTD device info\n");
    return -1;
  }
  switch (which) {
    case 0:
      return static_cast<int>(info.oobsize);
    case 1:
      return static_cast<int>(info.writesize);
    case 2:
      return static_cast<int>(info.erasesize);
    default:
      return 0;
  }
}

unsigned kt_flash_get_logical_size(int fd) {
  mtd_info_user info = {};
  return kt::mtd_request(fd, MEMGETINFO, &info) == 0 ? info.size : kSizeUnknown;
}

int is_a_bad_block(int fd, long long offset) {
  const int answer = kt::mtd_request(fd, MEMGETBADBLOCK, &offset);
  if (answer >= 0) return answer != 0 ? 1 : 0;
  if (errno == EOPNOTSUPP) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Bad block check not available, offsert=0x%x\n",
                   static_cast<unsigned>(offset));
  } else {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):ioctl failure, offsert=0x%x\n",
                   static_cast<unsigned>(offset));
  }
  return -1;
}

int read_data_fully(int fd, unsigned char* buf, unsigned len) {
  if (fd < 1 || buf == nullptr) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters!\n");
    return -1;
  }
  if (len == 0) {
    KT_TRACE_TWICE(Progress, "%s(%d)(%s(%d))No data to read\n");
    return 0;
  }
  const unsigned done =
      transfer(__func__, len, [=](unsigned at) { return ::read(fd, buf + at, len - at); });
  if (done < len) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Fail to read, read_len=%d, len=%d\n", done, len);
    return -1;
  }
  return static_cast<int>(len);
}

int write_data_fully(int fd, const unsigned char* buf, unsigned len) {
  if (fd < 1 || buf == nullptr) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters!\n");
    return -1;
  }
  if (len == 0) {
    KT_TRACE_TWICE(Progress, "%s(%d)(%s(%d))No data to write\n");
    return 0;
  }
  const unsigned done =
      transfer(__func__, len, [=](unsigned at) { return ::write(fd, buf + at, len - at); });
  if (done < len) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Fail to write, write_len=%d, len=%d\n", done, len);
    return -1;
  }
  return static_cast<int>(len);
}

int kt_flash_dump_page(void) {
  return 0;
}
