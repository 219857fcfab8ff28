// The area table at the end of a flash partition.
//
// Input: 1 to make the digest right, 1 to make the number of entries right, the number of
// an area; the table from its heads on, or nothing for the built-in one.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "fuzz/fuzz.h"
#include "ktcomm/flash.h"
#include "ktcomm/util_hash.h"

using namespace kt::fuzz;

namespace {

constexpr char kPartition[] = "/tmp/partition";
constexpr size_t kRoom = 65536, kDigest = 16, kHead = 22;

unsigned word_at(const std::string& bytes, size_t at) {
  return static_cast<unsigned char>(bytes[at]) | static_cast<unsigned>(static_cast<unsigned char>(bytes[at + 1])) << 8;
}

std::string built_in_table() {
  std::string table = std::string("\0\0\0\0\0\0", 6);
  table.append(reinterpret_cast<const char*>(def_area_entry), sizeof def_area_entry - sizeof def_area_entry[0]);
  return table;
}

// All of the last 64 KiB.
std::string make_image(std::string table, bool right_digest, bool right_count) {
  if (table.empty()) table = built_in_table();
  if (table.size() < 6) table.resize(6);
  if (right_count) {
    const size_t count = (table.size() - 6) / 8;
    table[2] = static_cast<char>(count & 0xFF);
    table[3] = static_cast<char>(count >> 8 & 0xFF);
  }
  std::string image = std::string(kDigest, '\xEE') + table;
  image.resize(kRoom, '\xFF');
  const size_t end = kHead + size_t{8} * word_at(image, 18);
  if (right_digest && end <= kRoom) {
    md5_buffer(reinterpret_cast<const unsigned char*>(image.data()) + kDigest, static_cast<unsigned>(end - kDigest),
               reinterpret_cast<unsigned char*>(image.data()));
  }
  return image;
}

int wanted_result(const std::string& image) {
  const size_t count = word_at(image, 18), end = kHead + 8 * count;
  if (count == 0) return -1;
  if (end > kRoom) return -3;
  unsigned char digest[kDigest];
  md5_buffer(reinterpret_cast<const unsigned char*>(image.data()) + kDigest, static_cast<unsigned>(end - kDigest),
             digest);
  return memcmp(digest, image.data(), kDigest) == 0 ? 0 : -3;
}

void judge_entries(int fd, const flash_area_table& table, const std::string& image, int id) {
  int first = -1;
  for (int i = table.count - 1; i >= 0; --i) {
    const size_t at = kHead + 8 * static_cast<size_t>(i);
    const flash_area_entry& entry = table.entries[i];
    expect_same("id", char(entry.id), image[at]);
    expect_same("attribute", char(entry.attr), image[at + 1]);
    expect_same("offset", unsigned{entry.offset}, word_at(image, at + 2));
    expect_same("reserved", unsigned{entry.reserve_size}, word_at(image, at + 4));
    expect_same("used", unsigned{entry.used_size}, word_at(image, at + 6));
    if (entry.id == id) first = i;
  }
  expect_same("place", get_specified_area_idx(id, &table), first);
  flash_area_entry found = {};
  expect_same("an area is found", read_specified_area_info(fd, id, &found), first < 0 ? -1 : 0);
  if (first < 0) return;
  expect(memcmp(&found, &table.entries[first], sizeof found) == 0, "the area found");
  expect_same("spare", get_area_spare_size(fd, first, &table), found.reserve_size - found.used_size);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const bool right_digest = input.number() == 1, right_count = input.number() == 1;
  const int id = input.number();
  const std::string image = make_image(input.rest(), right_digest, right_count);
  write_file(kPartition, image);
  const kt::unique_fd fd = kt::open_fd(kPartition, O_RDONLY);
  flash_area_table table = {};
  const int result = get_area_table(fd.get(), &table);
  expect_same("result", result, wanted_result(image));
  if (result != 0) return 0;
  judge_entries(fd.get(), table, image, id);
  free(table.entries);
  return 0;
}
