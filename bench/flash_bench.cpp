// Settings in flash: saving and restoring 40 KB.
#include <fcntl.h>
#include <ktcomm/flash.h>
#include <ktcomm/util.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "bench/bench.h"
#include "bench/hand.h"

namespace {

int g_syncs;

}  // namespace

// Counts the library's calls, and the ones by hand.
extern "C" void sync() noexcept {
  ++g_syncs;
  syscall(SYS_sync);
}

namespace kt::bench {
namespace {

constexpr size_t kSize = 40000;
constexpr char kArchive[] = "/mnt/ramdisk/envhand.tgz", kUnpacked[] = "/tmp/env_tmp0.tgz";
constexpr char kCopies[2][10] = {"/dev/mtd3", "/dev/mtd4"};
constexpr int kCgi = 8;

struct Header {
  uint16_t id, reserved;
  uint32_t length;
  unsigned char md5[16];
};

// Settings of all kinds of characters, so that packing has something to do.
void make_settings() {
  install_settings();
  std::string text = read_text(kSettings) + "[FILL]\n";
  for (unsigned i = 0, seed = 1; text.size() < kSize; ++i) {
    text += "key" + std::to_string(i) + "=";
    for (int c = 0; c < 60; ++c) {
      seed = seed * 1103515245 + 12345;
      text += static_cast<char>(' ' + (seed >> 16) % 95);
    }
    text += '\n';
  }
  write_text(kSettings, text);
}

void trace_step(const char* text) {
  trace_by_hand(8, kCgi, 0, "%s(%d)%s(%d) %s\n", "step", 123, "step", 123, text);
}

int open_copy(const char* partition, off_t offset) {
  const int fd = open(partition, O_RDWR | O_CLOEXEC);
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  require(fcntl(fd, F_SETLK, &lock) == 0 && lseek(fd, offset, SEEK_SET) == offset, partition);
  return fd;
}

void close_copy(int fd) {
  sync();
  struct flock lock = {};
  lock.l_type = F_UNLCK;
  (void)fcntl(fd, F_SETLK, &lock);
  close(fd);
}

char g_piece[65536];

void copy_pieces(int in, int out, size_t left) {
  while (left != 0) {
    const ssize_t count = read(in, g_piece, left < sizeof g_piece ? left : sizeof g_piece);
    require(count > 0 && write(out, g_piece, static_cast<size_t>(count)) == count, "copying");
    left -= static_cast<size_t>(count);
  }
}

bool is_valid() {
  const int fd = open(kSettings, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  unsigned char block[4096];
  bool valid = true;
  for (ssize_t count; (count = read(fd, block, sizeof block)) > 0;) {
    for (ssize_t i = 0; i < count; ++i) {
      const unsigned char c = block[i];
      valid = valid && ((c >= 32 && c <= 126) || c == '\n' || c == '\r');
    }
  }
  close(fd);
  return valid;
}

// Writes the archive behind the header, compares it, and lets the header follow.
void store_copy(const char* partition, const Header& header) {
  const int archive = open(kArchive, O_RDONLY | O_CLOEXEC);
  int copy = open_copy(partition, sizeof header);
  copy_pieces(archive, copy, header.length);
  close_copy(copy);

  (void)lseek(archive, 0, SEEK_SET);
  copy = open_copy(partition, sizeof header);
  char wanted[256], found[256];
  for (ssize_t count; (count = read(archive, wanted, sizeof wanted)) > 0;) {
    require(read(copy, found, static_cast<size_t>(count)) == count &&
                memcmp(wanted, found, static_cast<size_t>(count)) == 0,
            "comparing");
  }
  close_copy(copy);
  close(archive);

  copy = open_copy(partition, 0);
  require(write(copy, &header, sizeof header) == sizeof header, "writing the header");
  close_copy(copy);
}

void save_by_hand() {
  const int lock = open("/tmp/cgi_locker.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  (void)flock(lock, LOCK_EX);
  require(is_valid(), "valid settings");
  shell("cd /mnt/ramdisk/; /bin/tar zcf  envhand.tgz  env >/dev/null 2>/dev/null");
  const int archive = open(kArchive, O_RDONLY | O_CLOEXEC);
  Header header = {0xCCAA, 0, static_cast<uint32_t>(lseek(archive, 0, SEEK_END)), {}};
  require(md5_stream(header.md5, archive, 0, header.length) == 0, "md5_stream");
  close(archive);
  trace_step("ENV_ID, flen, md5val");
  store_copy(kCopies[1], header);
  trace_step("ret1");
  store_copy(kCopies[0], header);
  trace_step("ret");
  unlink(kArchive);
  (void)flock(lock, LOCK_UN);
  close(lock);
}

void check_version() {
  char wanted[33], stored[33];
  const int defaults = open("/etc/def_sys.conf", O_RDONLY | O_CLOEXEC);
  const int settings = open(kSettings, O_RDONLY | O_CLOEXEC);
  require(find_key(defaults, "[SYSTEM]", "cfg_ver", wanted, sizeof wanted) &&
              find_key(settings, "[SYSTEM]", "cfg_ver", stored, sizeof stored) &&
              strcmp(wanted, stored) == 0,
          "the same version");
  close(defaults);
  close(settings);
}

void restore_by_hand() {
  require(!is_valid(), "starting without settings");
  shell("/bin/rm -rf  /mnt/ramdisk/env  >/dev/null 2>/dev/null");
  const int archive = open(kUnpacked, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const int copy = open_copy(kCopies[0], 0);
  Header header;
  unsigned char md5[16];
  require(read(copy, &header, sizeof header) == sizeof header && header.id == 0xCCAA, "the header");
  copy_pieces(copy, archive, header.length);
  require(md5_stream(md5, archive, 0, header.length) == 0 && memcmp(md5, header.md5, 16) == 0,
          "the digest");
  close_copy(copy);
  close(archive);
  shell("cd /mnt/ramdisk/; /bin/tar zxf  /tmp/env_tmp0.tgz  >/dev/null 2>/dev/null");
  require(is_valid(), "valid settings");
  unlink(kUnpacked);
  trace_step("get normal configuration OK");
  check_version();
  trace_step("check cfg version OK");
}

void save_by_library() {
  require(fl_write_conf(kSettings) == 0, "fl_write_conf");
}

void restore_by_library() {
  require(fl_read_conf(kSettings) == 0, "fl_read_conf");
}

int syncs_of(void (*step)()) {
  g_syncs = 0;
  step();
  return g_syncs;
}

// The settings are there; a restore begins without.
void prepare_save() {
  empty_trace(kCgi);
  if (access(kSettings, F_OK) != 0) restore_by_hand();
}

void prepare_restore() {
  empty_trace(kCgi);
  unlink(kSettings);
}

}  // namespace

void add_all() {
  make_settings();
  const std::string before = read_text(kSettings);
  save_by_library();
  unlink(kSettings);
  restore_by_hand();
  require(read_text(kSettings) == before, "restoring by hand what the library saved");

  const Plan plan = {{Aim::kRatio, 1.03}, 31, 1, Clock::kWithChildren};
  add("settings of 40 KB saved", plan, save_by_library, save_by_hand, prepare_save);
  add("settings of 40 KB restored", plan, restore_by_library, restore_by_hand, prepare_restore);
  add_count("sync calls of a save", 6, [] {
    prepare_save();
    return syncs_of(save_by_library);
  });
  add_count("sync calls of a restore", 1, [] {
    prepare_restore();
    return syncs_of(restore_by_library);
  });
}

}  // namespace kt::bench
