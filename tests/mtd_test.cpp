// MTD devices: geometry, bad blocks, whole reads and writes. The device answers
// from a script.
#include <ktcomm/flash.h>
#include <mtd/mtd-user.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>

#include <deque>

#include "tests/taken_trace.h"

using namespace kt::test;

namespace {

constexpr int kDevice = 1000;  // no descriptor of the process

std::deque<int> g_script;  // what the next requests come to: a count or answer, or -errno
std::string g_written;
mtd_info_user g_info;  // what MEMGETINFO fills in
long long g_asked;     // the offset of the last MEMGETBADBLOCK

void set_script(const std::deque<int>& steps) {
  g_script = steps;
  g_written.clear();
  take_trace();
}

int next_step() {
  const int step = g_script.empty() ? -EPROTO : g_script.front();
  if (!g_script.empty()) g_script.pop_front();
  if (step < 0) errno = -step;
  return step < 0 ? -1 : step;
}

}  // namespace

// In place of the C library's: reading moves as many 'r' as the script says.
extern "C" {
ssize_t scripted_read(int fd, void* data, size_t count) __asm__("read");
ssize_t scripted_read(int fd, void* data, size_t count) {
  if (fd != kDevice) return syscall(SYS_read, fd, data, count);
  const int step = next_step();
  EXPECT_LE(step, static_cast<int>(count));
  if (step > 0) memset(data, 'r', static_cast<size_t>(step));
  return step;
}

ssize_t scripted_write(int fd, const void* data, size_t count) __asm__("write");
ssize_t scripted_write(int fd, const void* data, size_t count) {
  if (fd != kDevice) return syscall(SYS_write, fd, data, count);
  const int step = next_step();
  EXPECT_LE(step, static_cast<int>(count));
  if (step > 0) g_written.append(static_cast<const char*>(data), static_cast<size_t>(step));
  return step;
}

int scripted_ioctl(int fd, unsigned long request, void* argument) __asm__("ioctl");
int scripted_ioctl(int fd, unsigned long request, void* argument) {
  if (fd != kDevice) return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
  const int answer = next_step();
  if (request == MEMGETINFO && answer >= 0) memcpy(argument, &g_info, sizeof g_info);
  if (request == MEMGETBADBLOCK) memcpy(&g_asked, argument, sizeof g_asked);
  return answer;
}
}

namespace {

TEST(Geometry, supported_kinds_and_single_fields) {
  const struct {
    unsigned page, spare;
    unsigned char type;
    int expected;
    const char* trace;
  } kCases[] = {
      {256, 8, MTD_NANDFLASH, 0, ""},
      {512, 16, MTD_NANDFLASH, 0, ""},
      {2048, 64, MTD_NANDFLASH, 0, ""},
      {4096, 128, MTD_NANDFLASH, 0, ""},
      {2048, 128, MTD_NANDFLASH, -1, "Unknow flash, oobsize=128, writesize=2048\n"},
      {1, 0, MTD_NORFLASH, -1, "Unknow flash, oobsize=0, writesize=1\n"},
      {512, 16, MTD_MLCNANDFLASH, -1, "Unknow flash type, type=8\n"},
  };
  const std::string prefix = "4 kt_flash_get_mtdinfo()kt_flash_get_mtdinfo():";
  mtd_info_user info;
  for (const auto& c : kCases) {
    g_info = {c.type, 7, 0x90000000u, 131072, c.page, c.spare, 9};
    set_script({0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(kt_flash_get_mtdinfo(kDevice, &info), c.expected) << c.page;
    EXPECT_EQ(memcmp(&info, &g_info, sizeof info), 0) << "filled also when refused";
    EXPECT_EQ(take_trace(), *c.trace == '\0' ? "" : prefix + c.trace);
    EXPECT_EQ(kt_flash_mtdinfo(kDevice, 0), static_cast<int>(c.spare));
    EXPECT_EQ(kt_flash_mtdinfo(kDevice, 1), static_cast<int>(c.page));
    EXPECT_EQ(kt_flash_mtdinfo(kDevice, 2), 131072);
    for (const int other : {7, -1}) EXPECT_EQ(kt_flash_mtdinfo(kDevice, other), 0);
    EXPECT_EQ(kt_flash_get_logical_size(kDevice), 0x90000000u);
  }
  set_script({-ENOTTY, -EIO, -EIO, 0});
  EXPECT_EQ(kt_flash_get_mtdinfo(kDevice, &info), -1);
  EXPECT_EQ(kt_flash_mtdinfo(kDevice, 7), -1) << "the request comes first";
  EXPECT_EQ(kt_flash_get_logical_size(kDevice), static_cast<unsigned>(-2)) << "not traced";
  for (const int refused : {kt_flash_get_mtdinfo(0, &info), kt_flash_get_mtdinfo(kDevice, nullptr)})
    EXPECT_EQ(refused, -1);
  const std::string unable = "Unable to get MTD device info\n", refused = "Invalid parameters\n";
  EXPECT_EQ(take_trace(),
            prefix + unable + "4 kt_flash_mtdinfo()kt_flash_mtdinfo():" + unable + prefix + refused + prefix + refused);
  EXPECT_EQ(g_script.size(), 1u) << "refused without asking the device";
  EXPECT_EQ(kt_flash_dump_page(), 0);
}

TEST(BadBlock, answers_and_failures) {
  const std::string prefix = "4 is_a_bad_block()is_a_bad_block():", at = ", offsert=0x20000\n";
  set_script({0, 1, 5, -EOPNOTSUPP, -EINVAL});
  for (const int expected : {0, 1, 1, -1, -1}) {
    EXPECT_EQ(is_a_bad_block(kDevice, 0x700020000), expected);
    EXPECT_EQ(g_asked, 0x700020000) << "asked with 64 bits";
  }
  EXPECT_EQ(take_trace(), prefix + "Bad block check not available" + at + prefix + "ioctl failure" + at);
}

TEST(Transfer, whole_or_failed) {
  const struct {
    const char* what;
    std::deque<int> script;
    int expected, moved, retries;
    [[nodiscard]] std::string trace(const std::string& verb) const {
      const std::string name = verb + "_data_fully()";
      std::string lines;
      for (int i = 0; i < retries; ++i) lines += "8 " + name + "(" + name + ")Try again!!!\n";
      if (expected >= 0) return lines;
      return lines + "4 " + name + name + ":Fail to " + verb + ", " + verb + "_len=" + std::to_string(moved) +
             ", len=200\n";
    }
  } kCases[] = {
      {"in pieces", {50, 1, 149}, 200, 200, 0},
      {"nothing more after a part", {100, 0, 100}, -1, 100, 0},
      {"the allowance is renewed", {-EAGAIN, 100, -EAGAIN, 100}, 200, 200, 2},
      {"twice in a row", {100, -EAGAIN, -EAGAIN, 100}, -1, 100, 1},
      {"another error after the retry", {-EAGAIN, -EINTR, 200}, -1, 0, 1},
      {"the end after the retry", {-EAGAIN, 0, 200}, -1, 0, 1},
      {"an interruption is not tried again", {150, -EINTR, 50}, -1, 150, 0},
  };
  const std::string data = "0123456789" + std::string(180, '.') + "0123456789";
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    const auto moved = static_cast<size_t>(c.moved);
    std::string read(204, '#');
    set_script(c.script);
    EXPECT_EQ(read_data_fully(kDevice, reinterpret_cast<unsigned char*>(read.data()), 200), c.expected);
    EXPECT_EQ(read, std::string(moved, 'r') + std::string(204 - moved, '#'));
    EXPECT_EQ(take_trace(), c.trace("read"));
    set_script(c.script);
    EXPECT_EQ(write_data_fully(kDevice, reinterpret_cast<const unsigned char*>(data.data()), 200), c.expected);
    EXPECT_EQ(g_written, data.substr(0, moved));
    EXPECT_EQ(take_trace(), c.trace("write"));
  }
}

TEST(Transfer, arguments_are_checked_in_order) {
  unsigned char byte = '#';
  set_script({});
  for (const unsigned length : {0u, 1u}) {
    for (const int refused : {read_data_fully(0, &byte, length), write_data_fully(0, &byte, length),
                              read_data_fully(kDevice, nullptr, length), write_data_fully(kDevice, nullptr, length)})
      EXPECT_EQ(refused, -1);
    const std::string both =
        "4 read_data_fully()read_data_fully():Invalid parameters!\n"
        "4 write_data_fully()write_data_fully():Invalid parameters!\n";
    EXPECT_EQ(take_trace(), both + both);
  }
  EXPECT_EQ(read_data_fully(kDevice, &byte, 0), 0);
  EXPECT_EQ(write_data_fully(kDevice, &byte, 0), 0);
  EXPECT_EQ(take_trace(),
            "8 read_data_fully()(read_data_fully())No data to read\n"
            "8 write_data_fully()(write_data_fully())No data to write\n");
}

}  // namespace
