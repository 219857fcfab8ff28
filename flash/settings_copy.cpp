#include "flash/settings_copy.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/io.h"
#include "base/unique_fd.h"
#include "base/unique_malloc.h"
#include "flash/flash_device.h"
#include "flash/trace.h"
#include "ktcomm/util.h"

namespace kt {
namespace {

constexpr unsigned kPiece = 65536;
constexpr unsigned kComparePiece = 256;
constexpr int kAttempts = 3;

constexpr char kReadStep[] = "kt_flash_get_env_from_flash";

// Writes one piece to the temporary archive, over interruptions.
[[nodiscard]] bool write_piece(int fd, const char* piece, size_t size) {
  while (size != 0) {
    const ssize_t count = ::write(fd, piece, size);
    if (count < 0 && errno == EINTR) {
      KT_TRACE_TWICE_OF(kReadStep, Progress, "%s(%d)%s(%d): write be interrupt\n");
      continue;
    }
    if (count <= 0) return false;
    piece += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

[[nodiscard]] int read_archive(FlashDevice& device, unsigned length, int fd) {
  const auto piece = allocate<char>(kPiece);
  if (piece == nullptr) return kCopyUnreachable;
  for (unsigned left = length; left != 0;) {
    const unsigned size = left < kPiece ? left : kPiece;
    if (!device.read(piece.get(), size)) return kCopyUnreachable;
    if (!write_piece(fd, piece.get(), size)) {
      KT_TRACE_TWICE_OF(kReadStep, Failure, "%s(%d)%s(%d):write data fail\n");
      return kCopyUnreachable;
    }
    left -= size;
  }
  return kCopyDone;
}

[[nodiscard]] int check_digest(int fd, const CopyHeader& header) {
  unsigned char md5[16];
  if (md5_stream(md5, fd, 0, header.length) != 0) return kCopyUnreachable;
  return memcmp(md5, header.md5, sizeof md5) == 0 ? kCopyDone : kCopyBroken;
}

[[nodiscard]] int read_copy(const SettingsCopy& copy, int fd) {
  FlashDevice device(copy.partition);
  if (!device.ok()) {
    KT_TRACE_TWICE_OF(kReadStep, Failure, "%s(%d)ENV: %s(%d) open MTD ERROR\n");
    return kCopyUnreachable;
  }
  CopyHeader header;
  if (!device.seek(0) || !device.read(&header, sizeof header)) return kCopyUnreachable;
  if (header.id != kCopyId || header.length == 0) {
    KT_TRACE_TWICE_OF(kReadStep, Failure, "%s(%d)Error: %s(%d),envheader is wrong \n");
    return kCopyBroken;
  }
  const int result = read_archive(device, header.length, fd);
  return result == kCopyDone ? check_digest(fd, header) : result;
}

}  // namespace

int kt_flash_get_env_from_flash(const SettingsCopy& copy) {
  const unique_fd archive = open_fd(copy.archive, O_RDWR | O_CREAT | O_TRUNC, 0600);
  if (!archive.ok()) {
    KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) create tmp file ERROR\n");
    return kCopyUnreachable;
  }
  const int result = read_copy(copy, archive.get());
  if (result != kCopyDone) (void)::unlink(copy.archive);  // it is of no use to anybody
  return result;
}

bool fl_write_file_to_flash(const char* archive, const SettingsCopy& copy) {
  const unique_fd file = open_fd(archive, O_RDONLY);
  FlashDevice device(copy.partition);
  const auto piece = allocate<char>(kPiece);
  if (!file.ok() || !device.ok() || piece == nullptr || !device.seek(kArchiveOffset)) return false;
  ssize_t size;
  while ((size = read_fully(file.get(), piece.get(), kPiece)) > 0) {
    if (!device.write(piece.get(), static_cast<unsigned>(size))) return false;
  }
  return device.close() && size == 0;
}

bool compare_file_content(const char* archive, const SettingsCopy& copy) {
  const unique_fd file = open_fd(archive, O_RDONLY);
  FlashDevice device(copy.partition);
  if (!file.ok() || !device.ok() || !device.seek(kArchiveOffset)) return false;
  unsigned char wanted[kComparePiece];
  unsigned char found[kComparePiece];
  ssize_t size;
  while ((size = read_fully(file.get(), wanted, sizeof wanted)) > 0) {
    if (!device.read(found, static_cast<unsigned>(size)) ||
        memcmp(wanted, found, static_cast<size_t>(size)) != 0) {
      return false;
    }
  }
  return size == 0;
}

bool write_copy_header(const CopyHeader& header, size_t size, const SettingsCopy& copy) {
  FlashDevice device(copy.partition);
  return device.ok() && device.seek(0) && device.write(&header, static_cast<unsigned>(size)) &&
         device.close();
}

int fl_conf_ram2flash(const char* archive, const CopyHeader& header, const SettingsCopy& copy) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (!fl_write_file_to_flash(archive, copy)) {
      KT_TRACE_ONCE(Failure, "%s(%d)Error:  write %s in %s is wrong\n", archive, copy.label);
    } else if (!compare_file_content(archive, copy)) {
      KT_TRACE_ONCE(Failure, "%s(%d)Error:  %s in %s is wrong\n", archive, copy.label);
    } else if (write_copy_header(header, sizeof header, copy)) {
      return kCopyDone;
    } else {
      KT_TRACE_TWICE(Failure, "%s(%d)ENV: %s(%d) write env header fail\n");
      return kCopyBroken;
    }
  }
  // A copy given up gets the id alone; what stands behind it stays.
  return write_copy_header(header, sizeof header.id, copy) ? kCopyGivenUp : kCopyUnreachable;
}

bool archive_fits(unsigned length, const SettingsCopy& copy) {
  constexpr long long kUnit = 65536;
  const unique_fd fd = open_fd(copy.partition, O_RDONLY);
  struct stat status;
  if (!fd.ok() || ::fstat(fd.get(), &status) != 0) return true;  // the write will tell
  const off_t size = ::lseek(fd.get(), 0, SEEK_END);
  if (size <= 0 || (S_ISREG(status.st_mode) && size % kUnit != 0)) return true;
  return kArchiveOffset + static_cast<long long>(length) <= size;
}

}  // namespace kt
