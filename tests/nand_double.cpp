#include "tests/nand_double.h"

#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace kt::test::nand {
namespace {

constexpr unsigned kMaxBlocks = 128;
constexpr unsigned kMaxChips = 4;

struct Block {
  Counts counts;
  Fault fault;
  bool half_erased;
};

struct Chip {
  char path[64];
  dev_t device;
  ino_t inode;
  Kind kind;
  Shape shape;
  unsigned char* cells;
  Block blocks[kMaxBlocks];
};

struct Bench {
  Chip chips[kMaxChips];
  unsigned chip_count;
  unsigned operations;
  unsigned cut_at;
  Cut how;
  char breach[128];
};

// Made before main, so that the processes forked later share it.
Bench* const g_bench =
    static_cast<Bench*>(mmap(nullptr, sizeof(Bench), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

[[noreturn]] void give_up(const char* what, const char* path) {
  fprintf(stderr, "nand_double: %s: %s: %s\n", what, path, strerror(errno));
  abort();
}

Chip& chip_at(const char* path) {
  Chip* const end = g_bench->chips + g_bench->chip_count;
  Chip* const chip = std::find_if(g_bench->chips, end, [=](const Chip& c) { return strcmp(c.path, path) == 0; });
  if (chip == end) give_up("not inserted", path);
  return *chip;
}

Chip* chip_of(int fd) {
  struct stat status;
  if (g_bench == nullptr || g_bench->chip_count == 0 || fstat(fd, &status) != 0) return nullptr;
  for (unsigned i = 0; i < g_bench->chip_count; ++i) {
    Chip& chip = g_bench->chips[i];
    if (chip.device == status.st_dev && chip.inode == status.st_ino) return &chip;
  }
  return nullptr;
}

bool may_write(int fd) { return (fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDONLY; }

int broken(const char* rule, const Chip& chip, unsigned block) {
  char* const text = g_bench->breach;
  if (text[0] == '\0') { snprintf(text, sizeof g_bench->breach, "%s, block %u: %s", chip.path, block, rule); }
  errno = EIO;
  return -1;
}

int refuse(int error) {
  errno = error;
  return -1;
}

// Counts an operation; `half` does half of it when the power goes in its middle.
template <typename F>
void operate(F half) {
  if (++g_bench->operations != g_bench->cut_at) return;
  if (g_bench->how == Cut::middle) half();
  _exit(kCutExit);
}

int erase_block(Chip& chip, unsigned number) {
  Block& block = chip.blocks[number];
  unsigned char* const cells = chip.cells + number * chip.shape.block_size;
  const auto half = [&] {
    memset(cells, 0xFF, chip.shape.block_size / 2);
    block.half_erased = true;
  };
  if (block.fault == Fault::marked_bad) return refuse(EIO);
  operate(half);
  ++block.counts.erases;
  if (block.fault == Fault::erase_fails) {
    half();
    return refuse(EIO);
  }
  memset(cells, 0xFF, chip.shape.block_size);
  block.half_erased = false;
  return 0;
}

int erase(int fd, Chip& chip, const erase_info_user& range) {
  const unsigned size = chip.shape.block_size;
  if (!may_write(fd)) return refuse(EPERM);
  if (range.start % size != 0 || range.length % size != 0 || range.length == 0 || range.start >= chip.shape.size() ||
      range.length > chip.shape.size() - range.start) {
    return refuse(EINVAL);
  }
  for (unsigned i = 0; i < range.length / size; ++i) {
    if (erase_block(chip, range.start / size + i) != 0) return -1;
  }
  return 0;
}

int program_page(Chip& chip, unsigned offset, const unsigned char* data) {
  const unsigned size = chip.shape.page_size;
  const unsigned number = offset / chip.shape.block_size;
  Block& block = chip.blocks[number];
  unsigned char* const cells = chip.cells + offset;
  if (block.fault == Fault::marked_bad) return refuse(EIO);
  if (block.half_erased) return broken("programmed after half an erase", chip, number);
  if (std::any_of(cells, cells + size, [](unsigned char cell) { return cell != 0xFF; })) {
    return broken("programmed over a page that was not erased", chip, number);
  }
  operate([&] { memcpy(cells, data, size / 2); });
  ++block.counts.programs;
  if (block.fault == Fault::program_fails) {
    memcpy(cells, data, size / 2);
    return refuse(EIO);
  }
  memcpy(cells, data, size);
  if (block.fault == Fault::programs_wrong) cells[size - 1] = 0;
  return 0;
}

// As the driver does: clamped to the device, and an error even when some pages
// are programmed by then.
ssize_t program(int fd, Chip& chip, const void* data, size_t count, long long offset) {
  const unsigned page = chip.shape.page_size;
  if (!may_write(fd)) return refuse(EBADF);
  if (count == 0) return 0;
  if (offset < 0) return refuse(EINVAL);
  if (offset >= chip.shape.size()) return refuse(ENOSPC);
  const auto at = static_cast<unsigned>(offset);
  count = std::min<size_t>(count, chip.shape.size() - at);
  if (at % page != 0 || count % page != 0) return refuse(EINVAL);
  for (unsigned done = 0; done < count; done += page) {
    if (program_page(chip, at + done, static_cast<const unsigned char*>(data) + done) != 0) { return -1; }
  }
  return static_cast<ssize_t>(count);
}

ssize_t kernel_pwrite(int fd, const void* data, size_t count, long long offset) {
#if __SIZEOF_LONG__ == 8
  return syscall(SYS_pwrite64, fd, data, count, offset);
#else  // as on ARM: a pair of registers begins with an even one
  return syscall(SYS_pwrite64, fd, data, count, 0, static_cast<long>(offset), static_cast<long>(offset >> 32));
#endif
}

// A write to anything but a NAND chip, by `write(count)`.
template <typename F>
ssize_t write_plainly(Chip* chip, size_t count, F write) {
  if (chip != nullptr) {
    operate([&] { (void)write(count / 2); });
    ++chip->blocks[0].counts.programs;
  }
  return write(count);
}

ssize_t write_at(int fd, const void* data, size_t count, long long offset) {
  Chip* const chip = chip_of(fd);
  if (chip != nullptr && chip->kind == Kind::nand) return program(fd, *chip, data, count, offset);
  return write_plainly(chip, count, [=](size_t n) { return kernel_pwrite(fd, data, n, offset); });
}

ssize_t write_here(int fd, const void* data, size_t count) {
  Chip* const chip = chip_of(fd);
  if (chip == nullptr || chip->kind == Kind::plain) {
    return write_plainly(chip, count, [=](size_t n) { return syscall(SYS_write, fd, data, n); });
  }
  const off_t position = lseek(fd, 0, SEEK_CUR);
  const ssize_t done = program(fd, *chip, data, count, position);
  if (done > 0) lseek(fd, position + done, SEEK_SET);
  return done;
}

int request(int fd, unsigned long number, void* argument) {
  Chip* const chip = chip_of(fd);
  if (chip == nullptr || chip->kind == Kind::plain) {
    return static_cast<int>(syscall(SYS_ioctl, fd, number, argument));
  }
  const Shape& shape = chip->shape;
  if (number == MEMERASE) return erase(fd, *chip, *static_cast<erase_info_user*>(argument));
  if (number == MEMGETINFO) {
    mtd_info_user info = {};
    info.type = MTD_NANDFLASH;
    info.flags = MTD_CAP_NANDFLASH;
    info.size = shape.size();
    info.erasesize = shape.block_size;
    info.writesize = shape.page_size;
    info.oobsize = shape.spare_size;
    memcpy(argument, &info, sizeof info);
    return 0;
  }
  if (number != MEMGETBADBLOCK) return refuse(ENOTTY);
  const long long offset = *static_cast<long long*>(argument);
  if (offset < 0 || offset >= shape.size()) return refuse(EINVAL);
  return chip->blocks[offset / shape.block_size].fault == Fault::marked_bad ? 1 : 0;
}

}  // namespace

void insert(const char* path, Kind kind, const Shape& shape) {
  Chip* const end = g_bench->chips + g_bench->chip_count;
  Chip* chip = std::find_if(g_bench->chips, end, [=](const Chip& c) { return strcmp(c.path, path) == 0; });
  if (chip == end && g_bench->chip_count++ == kMaxChips) give_up("too many devices", path);
  if (chip->cells != nullptr) munmap(chip->cells, chip->shape.size());
  if (shape.blocks > kMaxBlocks || strlen(path) >= sizeof chip->path) give_up("too large", path);
  *chip = {};
  strcpy(chip->path, path);
  chip->kind = kind;
  chip->shape = shape;
  struct stat status;
  if (stat(path, &status) == 0 && S_ISCHR(status.st_mode)) unlink(path);  // a real chip, as in the emulated camera
  const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0 || fstat(fd, &status) != 0) give_up("open", path);
  if (truncate(path, shape.size()) != 0) give_up("truncate", path);
  void* const cells = mmap(nullptr, shape.size(), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (cells == MAP_FAILED) give_up("mmap", path);
  close(fd);
  chip->device = status.st_dev;
  chip->inode = status.st_ino;
  chip->cells = static_cast<unsigned char*>(cells);
  memset(cells, 0xFF, shape.size());
}

void take_out() {
  for (unsigned i = 0; i < g_bench->chip_count; ++i) {
    munmap(g_bench->chips[i].cells, g_bench->chips[i].shape.size());
  }
  *g_bench = {};
}

unsigned char* cells(const char* path) { return chip_at(path).cells; }

Counts counts(const char* path, unsigned block) { return chip_at(path).blocks[block].counts; }

Counts counts(const char* path) {
  Counts all;
  for (const Block& block : chip_at(path).blocks) {
    all.erases += block.counts.erases;
    all.programs += block.counts.programs;
  }
  return all;
}

void reset_counts() {
  for (Chip& chip : g_bench->chips) {
    for (Block& block : chip.blocks) block.counts = {};
  }
  g_bench->operations = 0;
}

void set_fault(const char* path, unsigned block, Fault fault) { chip_at(path).blocks[block].fault = fault; }

std::string breach() { return g_bench->breach; }

unsigned operations() { return g_bench->operations; }

void cut_at(unsigned n, Cut how) {
  g_bench->operations = 0;
  g_bench->cut_at = n;
  g_bench->how = how;
}

}  // namespace kt::test::nand

// In place of the C library's, by their names in the object file: with 64-bit
// offsets the headers give some of them other names.
namespace nand = kt::test::nand;

extern "C" {
ssize_t double_write(int fd, const void* data, size_t count) __asm__("write");
ssize_t double_pwrite(int fd, const void* data, size_t count, off_t offset) __asm__("pwrite64");
int double_ioctl(int fd, unsigned long request, void* argument) __asm__("ioctl");

ssize_t double_write(int fd, const void* data, size_t count) { return nand::write_here(fd, data, count); }

ssize_t double_pwrite(int fd, const void* data, size_t count, off_t offset) {
  return nand::write_at(fd, data, count, offset);
}

int double_ioctl(int fd, unsigned long request, void* argument) { return nand::request(fd, request, argument); }

// Where `off_t` has 64 bits in all of the C library, this is the same function.
#if __SIZEOF_LONG__ == 8 || !defined(__GLIBC__)
ssize_t double_plain_pwrite(int fd, const void* data, size_t count, off_t offset) __asm__("pwrite");

ssize_t double_plain_pwrite(int fd, const void* data, size_t count, off_t offset) {
  return nand::write_at(fd, data, count, offset);
}
#endif
}
