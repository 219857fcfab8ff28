// MTD devices: geometry, bad blocks, whole reads and writes. The device answers
// from a script.
#include <ktcomm/flash.h>
#include <limits.h>
#include <mtd/mtd-user.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>

#include <deque>

#include "tests/taken_trace.h"

using namespace kt::test;
using std::string;

namespace {

constexpr int kDevice = 1000, kAll = INT_MAX;  // no descriptor of the process; in a script: all that is asked for
std::deque<int> g_script;                      // what the next requests come to: a count or answer, or -errno
string g_written;
mtd_info_user g_info;  // what MEMGETINFO fills in
long long g_asked;     // the offset of the last MEMGETBADBLOCK

int next_step(size_t limit = INT_MAX) {
  const int step = g_script.empty() ? -EPROTO : g_script.front();
  if (!g_script.empty()) g_script.pop_front();
  if (step < 0) errno = -step;
  return step < 0 ? -1 : static_cast<int>(std::min<size_t>(static_cast<size_t>(step), limit));
}

}  // namespace

// In place of the C library's: reading moves as many 'r' as the script says.
extern "C" ssize_t read(int fd, void* data, size_t count) {
  if (fd != kDevice) return syscall(SYS_read, fd, data, count);
  const int step = next_step(count);
  if (step > 0) memset(data, 'r', static_cast<size_t>(step));
  return step;
}

extern "C" ssize_t write(int fd, const void* data, size_t count) {
  if (fd != kDevice) return syscall(SYS_write, fd, data, count);
  const int step = next_step(count);
  if (step > 0) g_written.append(static_cast<const char*>(data), static_cast<size_t>(step));
  return step;
}

extern "C" int scripted_ioctl(int fd, unsigned long request, void* argument) __asm__("ioctl");
extern "C" int scripted_ioctl(int fd, unsigned long request, void* argument) {
  if (fd != kDevice) return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
  const int answer = next_step();
  if (request == MEMGETINFO && answer >= 0) memcpy(argument, &g_info, sizeof g_info);
  if (request == MEMGETBADBLOCK) memcpy(&g_asked, argument, sizeof g_asked);
  return answer;
}

namespace {

TEST(Geometry, supported_kinds_and_single_fields) {
  const string prefix = "4 kt_flash_get_mtdinfo()kt_flash_get_mtdinfo():", unable = "Unable to get MTD device info\n";
  const std::tuple<unsigned, unsigned, unsigned char, string> kCases[] = {
      // page, spare, type, what is traced
      {256, 8, MTD_NANDFLASH, ""},
      {2048, 64, MTD_NANDFLASH, ""},
      {4096, 128, MTD_NANDFLASH, ""},
      {2048, 128, MTD_NANDFLASH, prefix + "Unknow flash, oobsize=128, writesize=2048\n"},
      {1, 0, MTD_NORFLASH, prefix + "Unknow flash, oobsize=0, writesize=1\n"},
      {512, 16, MTD_MLCNANDFLASH, prefix + "Unknow flash type, type=8\n"}};
  mtd_info_user info;
  const auto fields = [] {
    Results all = {kt_flash_get_logical_size(kDevice)};
    for (const int which : {0, 1, 2, 7, -1}) all.push_back(kt_flash_mtdinfo(kDevice, which));
    return all;
  };
  for (const auto& [page, spare, type, trace] : kCases) {
    g_info = {type, 7, 0x90000000u, 131072, page, spare, 9};
    g_script = std::deque<int>(7, 0);
    EXPECT_EQ(kt_flash_get_mtdinfo(kDevice, &info), trace.empty() ? 0 : -1) << page;
    EXPECT_EQ(memcmp(&info, &g_info, sizeof info), 0) << "filled also when refused";
    EXPECT_EQ(take_trace(), trace);
    EXPECT_EQ(fields(), (Results{0x90000000u, spare, page, 131072, 0, 0}));
  }
  EXPECT_EQ(fields(), (Results{UINT_MAX - 1, -1, -1, -1, -1, -1})) << "the request comes first";
  EXPECT_EQ(kt_flash_get_mtdinfo(kDevice, &info), -1);
  g_script = {0, 0};
  EXPECT_EQ(kt_flash_get_mtdinfo(0, &info) + kt_flash_get_mtdinfo(kDevice, nullptr), -2);
  string all = prefix + unable + prefix + "Invalid parameters\n" + prefix + "Invalid parameters\n";
  for (int i = 0; i < 5; ++i) all.insert(0, "4 kt_flash_mtdinfo()kt_flash_mtdinfo():" + unable);
  EXPECT_EQ(take_trace(), all);
  EXPECT_EQ(g_script.size() + kt_flash_dump_page(), 2u) << "refused without asking the device";
}

TEST(BadBlock, answers_and_failures) {
  const string prefix = "4 is_a_bad_block()is_a_bad_block():", at = ", offsert=0x20000\n";
  g_script = {0, 1, 5, -EOPNOTSUPP, -EINVAL};
  for (const int expected : {0, 1, 1, -1, -1}) EXPECT_EQ(is_a_bad_block(kDevice, 0x700020000), expected);
  EXPECT_EQ(g_asked, 0x700020000) << "asked with 64 bits";
  EXPECT_EQ(take_trace(), prefix + "Bad block check not available" + at + prefix + "ioctl failure" + at);
}

TEST(Transfer, whole_or_failed) {
  const std::tuple<const char*, std::deque<int>, size_t, int> kCases[] = {
      // the bytes moved, of 200; tries again
      {"in pieces", {50, 1, kAll}, 200, 0},
      {"nothing more after a part", {100, 0, 100}, 100, 0},
      {"the allowance is renewed", {-EAGAIN, 100, -EAGAIN, kAll}, 200, 2},
      {"twice in a row", {100, -EAGAIN, -EAGAIN, 100}, 100, 1},
      {"another error after the retry", {-EAGAIN, -EINTR, 200}, 0, 1},
      {"the end after the retry", {-EAGAIN, 0, 200}, 0, 1},
      {"an interruption is not tried again", {150, -EINTR, 50}, 150, 0}};
  const string data = "0123456789" + string(180, '.') + "0123456789" + string(300, '#');
  for (const auto& [what, script, moved, retries] : kCases) {
    for (const string verb : {"read", "write"}) {
      string bytes = data, trace;
      auto* const start = reinterpret_cast<unsigned char*>(bytes.data());
      g_script = script;
      g_written.clear();
      const int result = verb == "read" ? read_data_fully(kDevice, start, 200) : write_data_fully(kDevice, start, 200);
      EXPECT_EQ(result, moved == 200 ? 200 : -1) << what;
      EXPECT_EQ(g_written, verb == "read" ? "" : data.substr(0, moved)) << what;
      EXPECT_EQ(bytes, verb == "read" ? string(moved, 'r') + data.substr(moved) : data) << what;
      const string name = verb + "_data_fully()", length = verb + "_len=" + std::to_string(moved);
      for (int i = 0; i < retries; ++i) trace += "4 " + name + "(" + name + ")Try again!!!\n";
      if (moved != 200) trace += "4 " + name + name + ":Fail to " + verb + ", " + length + ", len=200\n";
      EXPECT_EQ(take_trace(), trace);
    }
  }
}

TEST(Transfer, arguments_are_checked_in_order) {
  unsigned char byte = '#';
  for (const unsigned length : {0u, 1u}) {
    expect_all(-1, {read_data_fully(0, &byte, length), read_data_fully(kDevice, nullptr, length),
                    write_data_fully(0, &byte, length), write_data_fully(kDevice, nullptr, length)});
  }
  expect_all(0, {read_data_fully(kDevice, &byte, 0), write_data_fully(kDevice, &byte, 0)});
  const string name = "_data_fully()", bad = name + ":Invalid parameters!\n";
  const string read = "4 read" + name + "read" + bad, write = "4 write" + name + "write" + bad;
  EXPECT_EQ(take_trace(), read + read + write + write + read + read + write + write +
                              "8 read_data_fully()(read_data_fully())No data to read\n"
                              "8 write_data_fully()(write_data_fully())No data to write\n");
}

}  // namespace
