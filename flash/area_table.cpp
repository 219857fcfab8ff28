#include <ktcomm/flash.h>
#include <ktcomm/util_hash.h>
#include <limits.h>
#include <stddef.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "base/io.h"
#include "base/unique_malloc.h"
#include "flash/block_writer.h"
#include "flash/trace.h"

namespace {

enum : int { kFailed = -1, kWrongDigest = -3 };

// The table as it lies in flash.
constexpr off_t kTableRoom = 65536;
constexpr unsigned kDigestSize = 16;
constexpr unsigned kHeadSize = 22;  // digest and three words; the entries follow, unaligned
constexpr unsigned kEntrySize = 8;

using Table = flash_area_table;
using Entry = flash_area_entry;

static_assert(offsetof(flash_area_entry, id) == 0 && offsetof(flash_area_entry, attr) == 1 &&
              offsetof(flash_area_entry, offset) == 2 &&
              offsetof(flash_area_entry, reserve_size) == 4 &&
              offsetof(flash_area_entry, used_size) == 6 && sizeof(flash_area_entry) == 8);
#if __SIZEOF_POINTER__ == 4
static_assert(offsetof(flash_area_table, md5) == 0 && offsetof(flash_area_table, head0) == 16 &&
              offsetof(flash_area_table, count) == 18 && offsetof(flash_area_table, head2) == 20 &&
              offsetof(flash_area_table, entries) == 24 && sizeof(flash_area_table) == 28);
#endif

unsigned short word_at(const unsigned char* bytes) {
  return static_cast<unsigned short>(bytes[0] | bytes[1] << 8);
}

// What cannot be read is left as it is: the count or the digest shows it.
void read_at(int fd, off_t offset, void* data, size_t size) {
  if (::lseek(fd, offset, SEEK_SET) == offset) (void)kt::read_fully(fd, data, size);
}

Table read_head(int fd, int offset) {
  unsigned char head[kHeadSize] = {};
  if (offset >= 0) read_at(fd, offset, head, sizeof head);
  Table table = {};
  memcpy(table.md5, head, sizeof table.md5);
  table.head0 = word_at(head + 16);
  table.count = word_at(head + 18);
  table.head2 = word_at(head + 20);
  return table;
}

bool has_right_digest(int fd, unsigned offset, const Table& table) {
  unsigned char digest[kDigestSize];
  const unsigned start = offset + kDigestSize;
  const unsigned end = offset + kHeadSize + kEntrySize * table.count;
  return md5_stream(digest, fd, start, end) == 0 && memcmp(digest, table.md5, sizeof digest) == 0;
}

// Reads the entries over themselves: both forms have the same size.
void read_entries(int fd, int offset, Entry* entries, unsigned count) {
  memset(entries, 0, count * sizeof *entries);
  read_at(fd, offset + off_t{kHeadSize}, entries, size_t{count} * kEntrySize);
  for (unsigned i = 0; i < count; ++i) {
    unsigned char bytes[kEntrySize];
    memcpy(bytes, &entries[i], sizeof bytes);
    entries[i] = {bytes[0], bytes[1], word_at(bytes + 2), word_at(bytes + 4), word_at(bytes + 6)};
  }
}

const Entry* find_entry(const Table& table, int area_id) {
  const Entry* const end = table.entries + table.count;
  const Entry* const entry = std::find_if(static_cast<const Entry*>(table.entries), end,
                                          [=](const Entry& e) { return e.id == area_id; });
  return entry == end ? nullptr : entry;
}

}  // namespace

// Each area begins where the one before it ends.
constinit flash_area_entry def_area_entry[9] = {
    {1, 2, 0, 16, 8}, {2, 2, 16, 12, 8}, {3, 1, 28, 1, 1},
    {4, 1, 29, 1, 1}, {5, 1, 30, 1, 1},  {6, 1, 31, 1, 1},
    {7, 1, 32, 2, 2}, {8, 1, 34, 4, 0},  {},
};

constinit flash_area_entry backup_def_area_entry[6] = {
    {4, 1, 0, 1, 1}, {5, 1, 1, 1, 1}, {6, 1, 2, 1, 1}, {7, 1, 3, 2, 2}, {8, 1, 5, 1, 0}, {},
};

alignas(8) constinit unsigned char def_area_entry_list[8] = {};

int get_area_table_offset(int fd) {
  if (fd < 0) {
    KT_TRACE_ONCE(Failure, "%s(%d)invalid input parameter!\n");
    return kFailed;
  }
  const off_t offset = ::lseek(fd, -kTableRoom, SEEK_END);
  if (offset < 0 || offset > INT_MAX) {
    KT_TRACE_ONCE(Failure, "%s(%d)fail to lseek!\n");
    return kFailed;
  }
  return static_cast<int>(offset);
}

int get_area_table(int fd, flash_area_table* table) {
  if (fd < 0 || table == nullptr) {
    KT_TRACE_ONCE(Failure, "%s(%d)invalid input or output parameter!\n");
    return kFailed;
  }
  (void)kt::BlockWriter::flush_of(fd);  // flash_close reports what is lost here
  const int offset = get_area_table_offset(fd);
  Table found = read_head(fd, offset);
  if (found.count == 0) {
    KT_TRACE_ONCE(Failure, "%s(%d)can not find area table entry!\n");
    return kFailed;
  }
  if (!has_right_digest(fd, static_cast<unsigned>(offset), found)) {
    KT_TRACE_ONCE(Failure, "%s(%d)MD5 value is wrong!\n");
    return kWrongDigest;
  }
  auto entries = kt::allocate<Entry>(found.count);
  if (entries == nullptr) {
    KT_TRACE_ONCE(Failure, "%s(%d)fail to malloc space for area table entry!\n");
    return kFailed;
  }
  read_entries(fd, offset, entries.get(), found.count);
  found.entries = entries.release();  // the caller frees them
  *table = found;
  return 0;
}

int get_specified_area_idx(int area_id, const flash_area_table* table) {
  if (table == nullptr || table->entries == nullptr || table->count == 0) return kFailed;
  const Entry* const entry = find_entry(*table, area_id);
  return entry != nullptr ? static_cast<int>(entry - table->entries) : kFailed;
}

int get_area_spare_size(int fd, int index, const flash_area_table* table) {
  if (fd < 0 || index < 0 || table == nullptr || table->entries == nullptr) {
    KT_TRACE_TWICE(Failure, "%s(%d)%s(%d):Invalid parameters\n");
    return kFailed;
  }
  return table->entries[index].reserve_size - table->entries[index].used_size;
}

int read_specified_area_info(int fd, int area_id, flash_area_entry* out) {
  if (fd < 0 || out == nullptr) {
    KT_TRACE_ONCE(Failure, "%s(%d)Invalid parameters\n");
    return kFailed;
  }
  Table table;
  if (get_area_table(fd, &table) != 0) {
    KT_TRACE_ONCE(Failure, "%s(%d)get area table failed\n");
    return kFailed;
  }
  const kt::unique_malloc<Entry[]> entries(table.entries);
  const Entry* const entry = find_entry(table, area_id);
  if (entry == nullptr) {
    KT_TRACE_ONCE(Failure, "%s(%d)Can not find the specified area\n");
    return kFailed;
  }
  *out = *entry;
  return 0;
}
