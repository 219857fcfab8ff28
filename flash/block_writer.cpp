#include "flash/block_writer.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <type_traits>
#include <utility>

#include "base/io.h"
#include "base/unique_malloc.h"
#include "flash/mtd_request.h"

namespace kt {
namespace {

constexpr unsigned char kErased = 0xFF;
constexpr int kReads = 5;  // of a block before it is taken as it is

// The writers of this process, and what keeps two threads with a descriptor each
// from changing the list at once.
constinit BlockWriter* g_writers = nullptr;
constinit pthread_mutex_t g_writers_lock = PTHREAD_MUTEX_INITIALIZER;

class ListGuard {
 public:
  ListGuard() { ::pthread_mutex_lock(&g_writers_lock); }
  ListGuard(const ListGuard&) = delete;
  ListGuard& operator=(const ListGuard&) = delete;
  ~ListGuard() { ::pthread_mutex_unlock(&g_writers_lock); }
};

bool is_erased(const unsigned char* bytes, size_t count) {
  return bytes[0] == kErased && memcmp(bytes, bytes + 1, count - 1) == 0;
}

// A device that knows no bad blocks has none.
bool is_bad(int fd, unsigned start) {
  long long offset = start;
  const int answer = mtd_request(fd, MEMGETBADBLOCK, &offset);
  return answer > 0 || (answer < 0 && errno != EOPNOTSUPP);
}

// How many reads of a device had more flipped bits than could be put right: the driver
// counts them and hands out the bytes as they are. 0 for a device that does not count.
unsigned wrong_reads(int fd) {
  mtd_ecc_stats stats = {};
  return mtd_request(fd, ECCGETSTATS, &stats) == 0 ? stats.failed : 0;
}

}  // namespace

std::optional<ChipGeometry> chip_geometry(int fd) {
  mtd_info_user info = {};
  if (mtd_request(fd, MEMGETINFO, &info) < 0) return std::nullopt;
  if ((info.flags & MTD_NO_ERASE) != 0 || info.erasesize == 0 || info.writesize == 0 ||
      info.erasesize % info.writesize != 0 || info.size % info.erasesize != 0) {
    return std::nullopt;
  }
  return ChipGeometry{info.size, info.erasesize, info.writesize};
}

BlockWriter::Identity BlockWriter::identify(int fd) {
  struct stat status = {};
  (void)::fstat(fd, &status);  // a closed descriptor equals none that was open
  return {::getpid(), status.st_dev, status.st_ino, status.st_rdev};
}

// The link in the list that leads to the writer of `fd`, or the last one.
BlockWriter** BlockWriter::link_to(int fd) {
  BlockWriter** link = &g_writers;
  while (*link != nullptr && (*link)->fd_ != fd) link = &(*link)->next_;
  return link;
}

void BlockWriter::drop(BlockWriter** link) {
  const unique_malloc<BlockWriter> writer(*link);
  if (writer != nullptr) *link = writer->next_;
}

BlockWriter* BlockWriter::find(int fd) {
  const ListGuard guard;
  BlockWriter** const link = link_to(fd);
  if (*link != nullptr && (*link)->identity_ != identify(fd)) {
    drop(link);
    return nullptr;
  }
  return *link;
}

BlockWriter* BlockWriter::create(int fd, const ChipGeometry& geometry) {
  if ((::fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDWR) {
    errno = EBADF;
    return nullptr;
  }
  auto memory = allocate<unsigned char>(sizeof(BlockWriter) + geometry.block_size);
  if (memory == nullptr) return nullptr;
  static_assert(std::is_trivially_destructible_v<BlockWriter>);
  auto* const writer = new (memory.release()) BlockWriter(fd, identify(fd), geometry);
  const ListGuard guard;
  writer->next_ = g_writers;
  g_writers = writer;
  return writer;
}

void BlockWriter::forget(int fd) {
  const ListGuard guard;
  drop(link_to(fd));
}

bool BlockWriter::flush_of(int fd) {
  BlockWriter* const writer = find(fd);
  return writer == nullptr || writer->flush();
}

unsigned BlockWriter::put(unsigned position, const unsigned char* data, unsigned length) {
  unsigned done = 0;
  unsigned in_chip = 0;  // what is done and not held
  while (done < length) {
    const unsigned at = position + done;
    const unsigned within = at % geometry_.block_size;
    if (!holding_ || start_ != at - within) {
      if (!flush()) return in_chip;
      in_chip = done;
      if (!load(at - within)) return done;
    }
    const unsigned piece = std::min(length - done, geometry_.block_size - within);
    if (data != nullptr) {
      memcpy(content() + within, data + done, piece);
    } else {
      memset(content() + within, kErased, piece);
    }
    done += piece;
  }
  return done;
}

bool BlockWriter::flush() {
  if (holding_) {
    holding_ = false;
    failed_ = differs_from_chip() && !(erase() && program());
  } else if (failed_) {
    errno = EIO;
  }
  return !failed_;
}

void BlockWriter::overlay(off_t position, unsigned char* bytes, size_t count) const {
  if (!holding_) return;
  const off_t from = std::max<off_t>(position, start_);
  const off_t to = std::min<off_t>(position + static_cast<off_t>(count),
                                   static_cast<off_t>(start_) + geometry_.block_size);
  if (from < to) {
    memcpy(bytes + (from - position), content() + (from - start_), static_cast<size_t>(to - from));
  }
}

bool BlockWriter::load(unsigned start) {
  if (is_bad(fd_, start)) {
    errno = EIO;
    return false;
  }
  start_ = start;
  // What is read wrong would be written back as if it were right; mostly the next read is
  // better. A page that stays wrong, as a power cut leaves it, must not keep its block from
  // being erased: it is for the reader to find out.
  unsigned wrong = wrong_reads(fd_);
  for (int reads = 0; reads < kReads; ++reads) {
    holding_ = pread_fully(fd_, content(), geometry_.block_size, start);
    if (wrong == std::exchange(wrong, wrong_reads(fd_))) break;
  }
  return holding_;
}

// A block that cannot be read back is taken for a different one.
bool BlockWriter::differs_from_chip() const {
  unsigned char piece[4096];
  unsigned count = 0;
  for (unsigned at = 0; at < geometry_.block_size; at += count) {
    count = std::min<unsigned>(sizeof piece, geometry_.block_size - at);
    if (!pread_fully(fd_, piece, count, static_cast<off_t>(start_) + at)) return true;
    if (memcmp(piece, content() + at, count) != 0) return true;
  }
  return false;
}

bool BlockWriter::erase() const {
  erase_info_user range = {start_, geometry_.block_size};
  return mtd_request(fd_, MEMERASE, &range) == 0;
}

// Programs each run of pages that have something to say; the others stay erased.
bool BlockWriter::program() const {
  const unsigned page = geometry_.page_size;
  unsigned at = 0;
  while (at < geometry_.block_size) {
    unsigned end = at;
    while (end < geometry_.block_size && !is_erased(content() + end, page)) end += page;
    if (end > at && !pwrite_fully(fd_, content() + at, end - at, static_cast<off_t>(start_) + at)) {
      return false;
    }
    at = end + page;
  }
  return true;
}

}  // namespace kt
