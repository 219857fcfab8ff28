#include <errno.h>
#include <ktcomm/flash.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "base/io.h"
#include "flash/block_writer.h"
#include "flash/trace.h"

namespace {

enum : int { kFailed = -1, kBadParameters = -2 };

constexpr long long kEraseUnit = 65536;

// How a descriptor is written to: with `chip` by way of `writer`, which is null
// when there can be none; else as a plain file.
struct Target {
  bool chip;
  kt::BlockWriter* writer;
};

Target target_of(int fd) {
  kt::BlockWriter* const writer = kt::BlockWriter::find(fd);
  if (writer != nullptr) return {true, writer};
  const std::optional<kt::ChipGeometry> geometry = kt::chip_geometry(fd);
  if (!geometry) return {false, nullptr};
  return {true, kt::BlockWriter::create(fd, *geometry)};
}

// The count of bytes accepted, with errno when that is not all of them.
unsigned write_chip(int fd, kt::BlockWriter& writer, const unsigned char* bytes, unsigned count) {
  const off_t position = ::lseek(fd, 0, SEEK_CUR);
  if (position < 0) return 0;
  const off_t room = std::max<off_t>(writer.geometry().size - position, 0);
  const unsigned wanted = static_cast<unsigned>(std::min<off_t>(count, room));
  const unsigned accepted = writer.put(static_cast<unsigned>(position), bytes, wanted);
  if (accepted == wanted && wanted < count) errno = ENOSPC;
  (void)::lseek(fd, position + accepted, SEEK_SET);  // within the device: cannot fail
  return accepted;
}

// Erased bytes where there are others, a piece at a time.
bool erase_plain(int fd, off_t offset, off_t length) {
  unsigned char erased[4096], piece[sizeof erased];
  memset(erased, 0xFF, sizeof erased);
  for (off_t at = offset; at < offset + length; at += static_cast<off_t>(sizeof piece)) {
    if (!kt::pread_fully(fd, piece, sizeof piece, at)) return false;
    if (memcmp(piece, erased, sizeof piece) == 0) continue;
    if (!kt::pwrite_fully(fd, erased, sizeof erased, at)) return false;
  }
  return true;
}

// Through the writer, so that a block held where the range begins is erased once.
bool erase_chip(kt::BlockWriter& writer, off_t offset, off_t length) {
  const unsigned count = static_cast<unsigned>(length);
  return writer.put(static_cast<unsigned>(offset), nullptr, count) == count && writer.flush();
}

// The size of the device, its position left alone; -1 when it cannot be had or
// nothing can be written.
off_t size_of(int fd, const Target& target) {
  if (target.writer != nullptr) return target.writer->geometry().size;
  if (target.chip) return -1;
  const off_t position = ::lseek(fd, 0, SEEK_CUR);
  const off_t size = ::lseek(fd, 0, SEEK_END);
  return ::lseek(fd, position, SEEK_SET) < 0 ? -1 : size;
}

bool is_erasable(long long offset, long long length) {
  return offset >= 0 && length > 0 && offset % kEraseUnit == 0 && length % kEraseUnit == 0;
}

}  // namespace

int flash_write(int fd, const unsigned char* buf, unsigned count) {
  if (fd < 0 || buf == nullptr) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters\n");
    return kBadParameters;
  }
  const unsigned wanted = std::min<unsigned>(count, INT_MAX);
  if (wanted == 0) return 0;
  const Target target = target_of(fd);
  unsigned accepted = 0;
  if (!target.chip) {
    accepted = static_cast<unsigned>(kt::write_counted(fd, buf, wanted));
  } else if (target.writer != nullptr) {
    accepted = write_chip(fd, *target.writer, buf, wanted);
  }
  if (accepted < wanted) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Fail to write, write_len=%d, len=%d\n", accepted, wanted);
  }
  return accepted == 0 ? kFailed : static_cast<int>(accepted);
}

int flash_erase(int fd, long long offset, long long length) {
  if (fd < 0 || !is_erasable(offset, length)) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters\n");
    return kBadParameters;
  }
  const Target target = target_of(fd);
  const long long size = size_of(fd, target);
  if (size < 0) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Unable to get device size\n");
    return kFailed;
  }
  if (length > size || offset > size - length) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters\n");
    return kBadParameters;
  }
  const bool erased =
      target.chip ? erase_chip(*target.writer, offset, length) : erase_plain(fd, offset, length);
  if (!erased) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Fail to erase, offset=0x%x, length=0x%x\n",
                   static_cast<unsigned>(offset), static_cast<unsigned>(length));
  }
  return erased ? 0 : kFailed;
}
