// Flash handles, the store's writers and the area table, on a NAND chip and on
// a plain file.
#include <fcntl.h>
#include <ktcomm/flash.h>
#include <ktcomm/util.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>

#include <random>

#include "tests/nand_double.h"
#include "tests/taken_trace.h"

using namespace kt::test;
using nand::Counts, nand::Fault, nand::Kind, nand::Shape;

namespace {

constexpr char kDevice[] = "/dev/mtd3";
constexpr unsigned kBlock = 131072;
constexpr Counts kUntouched = {};

unsigned g_syncs;
Counts g_counts_at_sync;

// A fresh device, with bytes that differ from block to block and from page to page.
std::string fill(Kind kind = Kind::nand, const Shape& shape = {}) {
  nand::insert(kDevice, kind, shape);
  std::string content(shape.size(), '\0');
  for (unsigned i = 0; i < shape.size(); ++i) content[i] = static_cast<char>(i / 97 + i / 65521);
  memcpy(nand::cells(kDevice), content.data(), content.size());
  return content;
}

std::string cells(unsigned offset, size_t count) {
  return {reinterpret_cast<const char*>(nand::cells(kDevice)) + offset, count};
}

int open_at(long long offset, int flags = O_RDWR) {
  const int fd = flash_open(kDevice, flags);
  EXPECT_GE(fd, 1);
  EXPECT_EQ(flash_lseek(fd, offset, SEEK_SET), offset);
  return fd;
}

int put(int fd, const std::string& text) {
  return flash_write(fd, reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()));
}

std::string get(int fd, unsigned count) {
  std::string text(count, '#');
  EXPECT_EQ(flash_read(fd, text.data(), count), static_cast<int>(count));
  return text;
}

class FlashTest : public CameraTest {
 protected:
  FlashTest() {
    nand::insert(kDevice);
    take_trace();
  }
  void TearDown() override {
    EXPECT_EQ(nand::breach(), "");
    nand::take_out();
    CameraTest::TearDown();
  }
};

using Handle = FlashTest;
using Store = FlashTest;
using AreaTable = FlashTest;

}  // namespace

extern "C" void sync() noexcept {
  ++g_syncs;
  g_counts_at_sync = nand::counts(kDevice);
}

namespace {

TEST_F(Handle, opening_locks_writers_out) {
  const int fd = open_at(0);
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  const auto elsewhere = [](int flags) { return in_child([=] { return flash_open(kDevice, flags) + 10; }) - 10; };
  EXPECT_EQ((Results{elsewhere(O_RDWR), elsewhere(O_WRONLY)}), (Results{-2, -2}));
  EXPECT_GT(elsewhere(O_RDONLY), 0) << "readers do not lock";
  EXPECT_EQ(flash_close(fd), 0);
  EXPECT_GT(elsewhere(O_RDWR), 0);
  EXPECT_EQ((Results{flash_open(nullptr, O_RDWR), flash_open("/dev/none", O_RDWR)}), (Results{-2, -1}));
  const std::string name = "4 flash_open()flash_open():", locked = name + "Lock file fail\n";
  EXPECT_EQ(take_trace(), locked + locked + name + "Invalid parameters\n" + name + "Open file fail\n");
  const auto with_0_free = [] {
    close(0);
    const int moved = flash_open(kDevice, O_RDWR);
    return moved > 0 && fcntl(moved, F_GETFD) == FD_CLOEXEC && fcntl(0, F_GETFD) < 0 ? 0 : 1;
  };
  EXPECT_EQ(in_child(with_0_free), 0);
}

TEST_F(Handle, positions_reads_and_closing) {
  const std::string content = fill();
  const int fd = open_at(100);
  EXPECT_EQ(get(fd, 50), content.substr(100, 50));
  EXPECT_EQ(flash_lseek(fd, -30, SEEK_CUR), 120);
  EXPECT_EQ(flash_lseek(fd, 0xA0000000, SEEK_SET), 0xA0000000) << "up to 4 GiB";
  EXPECT_EQ(flash_lseek(fd, 0x500000007, SEEK_SET), 7) << "the low 32 bits";
  EXPECT_EQ((Results{flash_lseek(fd, -8, SEEK_CUR), flash_read(fd, nullptr, 0)}), (Results{-1, 0}));
  EXPECT_EQ(flash_lseek(fd, -10, SEEK_END), 16 * kBlock - 10);
  char bytes[20];
  EXPECT_EQ((Results{flash_read(fd, bytes, 20), flash_read(-1, bytes, 20)}), (Results{2, 2})) << "short or failed";
  EXPECT_EQ((Results{flash_lseek(fd, 0, SEEK_SET), put(fd, "text")}), (Results{0, 4}));
  g_syncs = 0;
  EXPECT_EQ((Results{flash_close(-1), g_syncs, flash_close(fd), g_syncs}), (Results{-2, 0, 0, 1}));
  EXPECT_EQ(g_counts_at_sync, (Counts{1, 64})) << "the chip comes first";
  EXPECT_EQ(flash_close(fd), -1) << "closed already";
  const std::string name = "4 flash_close()flash_close():";
  EXPECT_EQ(take_trace(), name + "Invalid parameters\n" + name + "Fail unlock the file\n");
}

TEST_F(Store, archive_erases_each_block_once) {
  std::string expected = fill(), archive(300 * 1024, '\0');
  for (size_t i = 0; i < archive.size(); ++i) archive[i] = static_cast<char>(i * i >> 7);
  archive.replace(50 * 2048, 3 * 2048, 3 * 2048, '\xFF');  // two whole pages of block 0
  for (const unsigned times : {1u, 0u}) {
    nand::reset_counts();
    const int fd = open_at(24);
    for (size_t at = 0; at < archive.size(); at += 65536) EXPECT_GT(put(fd, archive.substr(at, 65536)), 0);
    constexpr int end = 24 + 300 * 1024;
    EXPECT_EQ((Results{flash_lseek(fd, 0, SEEK_CUR), put(fd, "!"), flash_lseek(fd, end, SEEK_SET)}),
              (Results{end, 1, end}));
    EXPECT_EQ((Results{put(fd, expected.substr(size_t{end}, 1)), flash_close(fd)}), (Results{1, 0}))
        << "there and back";
    EXPECT_EQ(nand::counts(kDevice, 0), (Counts{times, times * 62})) << "erased pages stay so";
    for (const unsigned block : {1u, 2u}) EXPECT_EQ(nand::counts(kDevice, block), (Counts{times, times * 64}));
    EXPECT_EQ(nand::counts(kDevice).erases, times * 3);
  }
  EXPECT_EQ(cells(0, expected.size()), expected.replace(24, archive.size(), archive));
}

// Random work on a device against the same work on a string.
void compare_with_model(Kind kind, const Shape& shape) {
  SCOPED_TRACE(std::to_string(shape.block_size));
  std::string model = fill(kind, shape);
  std::mt19937 random(shape.page_size);
  const auto below = [&](size_t limit) { return static_cast<unsigned>(random() % limit); };
  int fd = open_at(0);
  for (int step = 0; step < 600; ++step) {
    SCOPED_TRACE(step);
    const auto at = static_cast<unsigned>(flash_lseek(fd, 0, SEEK_CUR));
    const unsigned count = std::min(shape.size() - at, below(below(8) != 0 ? 5000 : 200000));
    const unsigned what = below(16);
    if (what < 8 && count != 0) {
      std::string data = model.substr(at, count);  // sometimes no change at all
      if (below(4) != 0) std::generate(data.begin(), data.end(), [&] { return char(random()); });
      if (below(4) == 0) data.assign(count, '\xFF');
      ASSERT_EQ(put(fd, data), static_cast<int>(count));
      model.replace(at, count, data);
    } else if (what < 11) {
      ASSERT_EQ(get(fd, count), model.substr(at, count));
    } else if (what < 14) {
      flash_lseek(fd, below(shape.size()), SEEK_SET);
    } else if (what == 14) {
      const unsigned first = below(shape.size() / 65536) * 65536;
      const unsigned length = std::min(shape.size() - first, (1 + below(3)) * 65536);
      ASSERT_EQ(flash_erase(fd, first, length), 0);
      ASSERT_EQ(cells(first, length), std::string(length, '\xFF')) << "on return";
      ASSERT_EQ(flash_lseek(fd, 0, SEEK_CUR), at);
      model.replace(first, length, length, '\xFF');
    } else {
      ASSERT_EQ(flash_close(fd), 0);
      ASSERT_EQ(cells(0, model.size()), model);
      fd = open_at(below(shape.size()));
    }
  }
  EXPECT_EQ(flash_close(fd), 0);
}

TEST_F(Store, random_work_matches_a_model) {
  compare_with_model(Kind::nand, {6, kBlock, 2048, 64});
  compare_with_model(Kind::nand, {40, 16384, 512, 16});
  compare_with_model(Kind::nand, {3, 262144, 4096, 128});
  compare_with_model(Kind::plain, {6, kBlock, 1, 0});
}

TEST_F(Store, faults_are_reported_and_leave_the_rest_alone) {
  for (const Fault fault : {Fault::marked_bad, Fault::erase_fails, Fault::program_fails}) {
    const bool lost = fault != Fault::marked_bad;  // a marked block takes nothing to lose
    const std::string content = fill();
    nand::set_fault(kDevice, 1, fault);
    int fd = open_at(0);
    EXPECT_EQ(
        (Results{put(fd, "first"), put(fd, std::string(3 * kBlock, 'b')), flash_lseek(fd, 0, SEEK_CUR), put(fd, "c")}),
        (Results{5, kBlock - 5, kBlock, -1}))
        << "only what is in the chip";
    const std::string name = "4 flash_write()flash_write():Fail to write, write_len=";
    EXPECT_EQ(take_trace(), name + "131067, len=393216\n" + name + "0, len=1\n");
    EXPECT_EQ((Results{flash_lseek(fd, 5 * kBlock, SEEK_SET), put(fd, "d")}), (Results{5 * kBlock, lost ? -1 : 1}))
        << "nothing more after a loss";
    EXPECT_EQ((Results{flash_erase(fd, 8 * kBlock, kBlock), flash_erase(fd, kBlock, 2 * kBlock), flash_close(fd)}),
              (Results{lost ? -1 : 0, -1, lost ? -1 : 0}));
    EXPECT_EQ(cells(0, kBlock), "first" + std::string(kBlock - 5, 'b'));
    EXPECT_EQ(cells(2 * kBlock, 3 * kBlock), content.substr(2 * kBlock, 3 * kBlock));

    fd = open(kDevice, O_RDWR | O_CLOEXEC);  // the same number, with nothing left behind
    EXPECT_EQ((Results{flash_lseek(fd, kBlock + 7, SEEK_SET), put(fd, "e")}), (Results{kBlock + 7, lost ? 1 : -1}));
    take_trace();
    EXPECT_EQ(flash_close(fd), lost ? -1 : 0);
    EXPECT_EQ(take_trace(), lost ? "4 flash_close()flash_close():Written data lost\n" : "");
  }
}

TEST_F(Store, limits_and_bad_arguments) {
  int fd = open_at(16 * kBlock - 10);
  EXPECT_EQ((Results{put(fd, "longer than ten"), put(fd, "x")}), (Results{10, -1})) << "the end of the partition";
  EXPECT_EQ((Results{flash_lseek(fd, 9, SEEK_END), put(fd, "x")}), (Results{16 * kBlock + 9, -1}));
  take_trace();
  EXPECT_EQ((Results{put(fd, ""), put(-1, "x"), flash_write(fd, nullptr, 1)}), (Results{0, -2, -2}));
  const std::string refused = "4 flash_write()flash_write():Invalid parameters\n";
  EXPECT_EQ(take_trace(), refused + refused);
  EXPECT_EQ(flash_close(fd), 0);
  EXPECT_EQ(cells(16 * kBlock - 12, 12), "\xFF\xFFlonger tha");
  EXPECT_EQ((Results{put(99, "x"), flash_erase(99, 0, kBlock)}), (Results{-1, -1}));
  for (const int flags : {O_RDONLY, O_WRONLY, O_RDWR}) {
    EXPECT_EQ(truncate(kDevice, flags == O_RDWR ? kBlock / 2 : 16 * kBlock), 0);
    fd = open_at(0, flags);
    EXPECT_EQ((Results{put(fd, "x"), flash_erase(fd, 0, 65536), flash_close(fd)}), (Results{-1, -1, 0}))
        << "not open to both, or a block that cannot be read: nothing was accepted";
  }
  nand::insert(kDevice, Kind::plain);
  const auto fills_up = [] {
    const struct rlimit limit = {1000, 1000};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    const int full = open_at(24);
    return put(full, std::string(1500, 'x')) == 976 && put(full, "x") == -1 ? 0 : 1;
  };
  EXPECT_EQ(in_child(fills_up), 0);
}

TEST_F(Store, held_bytes_belong_to_one_descriptor_of_one_process) {
  const std::string content = fill();
  int fd = open_at(0);
  EXPECT_EQ(put(fd, "lost"), 4);
  close(fd);
  EXPECT_EQ(open_at(0), fd) << "the same number again";
  EXPECT_EQ(get(fd, 4), content.substr(0, 4));
  EXPECT_EQ(put(fd, "lost"), 4);
  close(fd);
  EXPECT_EQ(open("/dev/zero", O_RDWR | O_CLOEXEC), fd);
  EXPECT_EQ(get(fd, 8), std::string(8, '\0'));
  EXPECT_EQ(flash_close(fd), 0);
  fd = open(kDevice, O_RDWR | O_CLOEXEC);  // not by flash_open: just as good
  EXPECT_EQ(put(fd, "kept"), 4);
  EXPECT_EQ(in_child([=] { return flash_close(fd); }), 0);
  EXPECT_EQ(nand::counts(kDevice), kUntouched) << "a child does not write for its parent";
  EXPECT_EQ(flash_close(fd), 0);
  EXPECT_EQ(cells(0, 8), "kept" + content.substr(4, 4));
  expect_nothing_kept("writing", [] {
    const int one = open_at(0);
    EXPECT_EQ((Results{put(one, "one"), flash_close(one)}), (Results{3, 0}));
  });
}

TEST_F(Store, erases_whole_units_within_the_device) {
  const long long kRefused[][2] = {{1, 65536},       {0, 65535},      {0, 0},
                                   {0, -65536},      {-65536, 65536}, {2097152, 65536},
                                   {65536, 2097152}, {0, 1LL << 40},  {1LL << 40, 65536}};
  for (const Kind kind : {Kind::nand, Kind::plain}) {
    std::string content = fill(kind);
    const int fd = open_at(65536 - 2);
    for (const auto& [offset, length] : kRefused)
      EXPECT_EQ(flash_erase(fd, offset, length), -2) << offset << " " << length;
    EXPECT_EQ(flash_erase(-1, 0, 65536), -2);
    std::string trace;
    for (int i = 0; i < 10; ++i) trace += "4 flash_erase()flash_erase():Invalid parameters\n";
    EXPECT_EQ(take_trace(), trace);
    EXPECT_EQ(nand::counts(kDevice), kUntouched);
    EXPECT_EQ(put(fd, "held"), 4);
    nand::reset_counts();
    EXPECT_EQ(flash_erase(fd, 65536, 2 * 65536), 0) << "half of two blocks";
    content.replace(65536, 2 * 65536, 2 * 65536, '\xFF').replace(65536 - 2, 2, "he");
    EXPECT_EQ(cells(0, content.size()), content);
    EXPECT_EQ(nand::counts(kDevice), (kind == Kind::nand ? Counts{2, 64} : Counts{0, 32}));
    EXPECT_EQ(flash_erase(fd, 15 * kBlock, kBlock), 0) << "the last block";
    nand::reset_counts();
    EXPECT_EQ((Results{flash_erase(fd, 15 * kBlock, kBlock), flash_close(fd)}), (Results{0, 0}));
    EXPECT_EQ(nand::counts(kDevice), kUntouched) << "erased already";
  }
}

const std::string kDefaultEntries(
    "\1\2\0\0\x10\0\x8\0\2\2\x10\0\xC\0\x8\0\3\1\x1C\0\1\0\1\0\4\1\x1D\0\1\0\1\0\5\1\x1E\0\1\0\1\0"
    "\6\1\x1F\0\1\0\1\0\7\1\x20\0\2\0\2\0\x8\1\x22\0\4\0\0\0\0\0\0\0\0\0\0\0",
    72);
const std::string kBackupEntries(
    "\4\1\0\0\1\0\1\0\5\1\1\0\1\0\1\0\6\1\2\0\1\0\1\0\7\1\3\0\2\0\2\0\x8\1\5\0\1\0\0\0\0\0\0\0\0\0"
    "\0\0",
    48);

// A table as it lies in flash.
std::string table_of(const std::string& entries, size_t count) {
  const std::string body =
      std::string("\x34\x12") + static_cast<char>(count) + static_cast<char>(count >> 8) + "\x78\x56" + entries;
  unsigned char digest[16];
  md5_buffer(reinterpret_cast<const unsigned char*>(body.data()), static_cast<unsigned>(body.size()), digest);
  return std::string(reinterpret_cast<char*>(digest), 16) + body;
}

TEST_F(AreaTable, read_back) {
  EXPECT_EQ(memcmp(def_area_entry, kDefaultEntries.data(), sizeof def_area_entry), 0);
  EXPECT_EQ(memcmp(backup_def_area_entry, kBackupEntries.data(), sizeof backup_def_area_entry), 0);
  EXPECT_EQ(std::count(def_area_entry_list, def_area_entry_list + 8, 0), 8);

  const std::string bytes = table_of(kDefaultEntries, 9);
  const int fd = open_at(2097152 - 65536);
  EXPECT_EQ((Results{put(fd, bytes), get_area_table_offset(fd), flash_lseek(fd, 0, SEEK_CUR)}),
            (Results{22 + 72, 2097152 - 65536, 2097152 - 65536}));
  flash_area_table table;
  ASSERT_EQ(get_area_table(fd, &table), 0) << "though still held by the writer";
  EXPECT_EQ(memcmp(&table, bytes.data(), 22), 0) << "digest, heads and count";
  EXPECT_EQ(memcmp(table.entries, def_area_entry, sizeof def_area_entry), 0);
  EXPECT_EQ((Results{get_specified_area_idx(8, &table), get_specified_area_idx(264, &table)}), (Results{7, -1}));
  EXPECT_EQ((Results{get_area_spare_size(0, 1, &table), get_area_spare_size(-1, 1, &table),
                     get_area_spare_size(fd, -1, &table), get_area_spare_size(fd, 1, nullptr)}),
            (Results{4, -1, -1, -1}));
  table.entries[3].id = 8;
  EXPECT_EQ(get_specified_area_idx(8, &table), 3) << "the first one";
  table.count = 0;
  EXPECT_EQ(get_specified_area_idx(8, &table), -1);
  free(table.entries);

  flash_area_entry entry;
  EXPECT_EQ((Results{read_specified_area_info(fd, 8, &entry), read_specified_area_info(fd, 9, &entry),
                     read_specified_area_info(-1, 1, &entry), read_specified_area_info(fd, 1, nullptr)}),
            (Results{0, -1, -1, -1}));
  EXPECT_EQ(memcmp(&entry, &def_area_entry[7], sizeof entry), 0);
  const std::string spare = "4 get_area_spare_size()get_area_spare_size():Invalid parameters\n";
  const std::string info = "4 read_specified_area_info()", bad = info + "Invalid parameters\n";
  EXPECT_EQ(take_trace(), spare + spare + spare + info + "Can not find the specified area\n" + bad + bad);
  EXPECT_EQ(flash_close(fd), 0);
}

TEST_F(AreaTable, damage_is_found) {
  const std::string good = table_of(kDefaultEntries, 9);
  const std::string wrong = "4 get_area_table()MD5 value is wrong!\n";
  const std::string none = "4 get_area_table()can not find area table entry!\n";
  using Case = std::tuple<std::string, int, std::string>;
  std::vector<Case> cases = {{good + "more", 0, ""}, {table_of("", 0), -1, none}, {table_of(good, 65535), -3, wrong}};
  for (size_t at = 0; at < good.size(); ++at) {
    cases.emplace_back(std::string(good).replace(at, 1, 1, char(good[at] ^ 16)), -3, wrong);
  }
  for (const auto& [bytes, expected, trace] : cases) {
    nand::insert(kDevice);
    memcpy(nand::cells(kDevice) + 2097152 - 65536, bytes.data(), bytes.size());
    const int fd = open_at(0, O_RDONLY);
    flash_area_table table = {};
    EXPECT_EQ((Results{get_area_table(fd, &table), table.entries != nullptr}), (Results{expected, expected == 0}));
    EXPECT_EQ(take_trace(), trace);
    free(table.entries);
    flash_close(fd);
  }
  write_file("/tmp/small", std::string(65535, 'x'));
  const int small = flash_open("/tmp/small", O_RDONLY);
  flash_area_table table;
  flash_area_entry entry;
  EXPECT_EQ((Results{get_area_table(-1, &table), get_area_table(small, nullptr), get_area_table_offset(-1),
                     read_specified_area_info(small, 1, &entry)}),
            (Results{-1, -1, -1, -1}));
  const std::string bad = "4 get_area_table()invalid input or output parameter!\n";
  EXPECT_EQ(take_trace(), bad + bad + "4 get_area_table_offset()invalid input parameter!\n" +
                              "4 get_area_table_offset()fail to lseek!\n" + none +
                              "4 read_specified_area_info()get area table failed\n");
  EXPECT_EQ(flash_close(small), 0);
}

}  // namespace
