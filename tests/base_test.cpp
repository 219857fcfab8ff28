// The private building blocks.
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/file.h>

#include "base/file_lock.h"
#include "base/io.h"
#include "base/line_reader.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "base/temp_file.h"
#include "base/text.h"
#include "base/unique_malloc.h"
#include "tests/support.h"

using namespace kt;
using namespace kt::test;

namespace {

bool is_close_on_exec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

TEST(StringBuffer, cuts_at_its_capacity_and_remembers_it) {
  StringBuffer<5> text;
  text.append("abc");
  text.append_format("%d", 12);
  EXPECT_EQ(text.view(), "abc12");
  EXPECT_FALSE(text.truncated()) << "exactly full";
  text.append("");
  EXPECT_FALSE(text.truncated());
  text.append_format("%s", "x");
  EXPECT_TRUE(text.truncated());
  text.append("");
  EXPECT_TRUE(text.truncated()) << "for good";
  EXPECT_STREQ(text.c_str(), "abc12");
  StringBuffer<3> other;
  other.append("abcdef");
  EXPECT_EQ(other.view(), "abc");
  EXPECT_TRUE(other.truncated());
}

TEST(Text, prefixes_and_bounded_copies) {
  EXPECT_TRUE(has_prefix("abc", "ab"));
  EXPECT_TRUE(has_prefix("abc", ""));
  EXPECT_FALSE(has_prefix("ab", "abc"));
  char field[5] = "####";
  copy_cut(field, 3, "abcdef");
  EXPECT_STREQ(field, "ab");
  EXPECT_EQ(field[3], '#');
  copy_cut(field, 1, "x");
  EXPECT_STREQ(field, "");
}

TEST(LineReader, splits_at_line_feeds_and_at_the_size_only) {
  const std::string content("ab\n\nabcdefg\nx\0y\nlast", 20);
  write_file("/tmp/lines", content);
  FILE* const file = fopen("/tmp/lines", "re");
  char buffer[5];
  std::vector<std::string> lines;
  while (const size_t length = read_line(file, buffer, sizeof buffer)) {
    EXPECT_EQ(buffer[length], '\0');
    lines.emplace_back(buffer, length);
  }
  fclose(file);
  const std::vector<std::string> expected = {"ab\n", "\n", "abcd", "efg\n", std::string("x\0y\n", 4), "last"};
  EXPECT_EQ(lines, expected);
}

TEST(TempFile, is_deleted_with_its_object_and_leaves_nothing_on_failure) {
  std::string path;
  {
    TempFile file;
    ASSERT_TRUE(file.create("/tmp/tXXXXXX"));
    path = file.path();
    EXPECT_TRUE(is_close_on_exec(fileno(file.stream())));
    fputs("x", file.stream());
    EXPECT_TRUE(file.close());
    EXPECT_EQ(read_file(path), "x");
  }
  EXPECT_FALSE(exists(path));
  TempFile file;
  EXPECT_FALSE(file.create("/none/XXXXXX"));
  EXPECT_FALSE(file.close());
}

TEST(UniqueFile, close_reports_a_lost_write) {
  unique_file full(fopen("/dev/full", "we"));
  fputs("x", full.get());
  EXPECT_FALSE(full.close());
  unique_file earlier(fopen("/dev/full", "we"));
  fputs("x", earlier.get());
  fflush(earlier.get());
  EXPECT_FALSE(earlier.close()) << "also one that was reported before";
}

TEST(UniqueFd, reset_keeps_errno_and_open_is_close_on_exec) {
  unique_fd fd = open_fd("/dev/null", O_RDONLY);
  ASSERT_TRUE(fd.ok());
  EXPECT_TRUE(is_close_on_exec(fd.get()));
  unique_fd bad(9999);
  errno = ENOENT;
  bad.reset();
  EXPECT_EQ(errno, ENOENT);
  const int number = fd.get();
  unique_fd moved = static_cast<unique_fd&&>(fd);
  EXPECT_EQ(moved.get(), number);
  EXPECT_EQ(moved.close(), 0);
  EXPECT_EQ(fcntl(number, F_GETFD), -1);
}

TEST(Allocate, refuses_a_size_that_overflows) {
  EXPECT_EQ(allocate<int>(static_cast<size_t>(-1) / 2), nullptr);
  EXPECT_NE(allocate<int>(10), nullptr);
}

TEST(Io, whole_transfers_through_a_slow_pipe) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const std::string data(300000, 'd');
  const pid_t writer = fork();
  if (writer == 0) _exit(write_fully(ends[1], data.data(), data.size()) ? 0 : 1);
  close(ends[1]);
  std::string got(data.size() + 10, '#');
  EXPECT_EQ(read_fully(ends[0], got.data(), got.size()), static_cast<ssize_t>(data.size()));
  EXPECT_EQ(got.substr(0, data.size()), data);
  int status = -1;
  waitpid(writer, &status, 0);
  EXPECT_EQ(status, 0);
  close(ends[0]);
  EXPECT_EQ(read_fully(ends[0], got.data(), 1), -1);
  EXPECT_FALSE(write_fully(ends[0], "x", 1));
}

TEST(RunShell, tells_how_the_command_ended) {
  EXPECT_TRUE(run_shell("exit %d", 0));
  EXPECT_FALSE(run_shell("exit %d", 3));
  EXPECT_FALSE(run_shell("kill -9 $$"));
  EXPECT_FALSE(run_shell("%s", std::string(2048, ' ').c_str())) << "not run when cut";
  EXPECT_TRUE(run_shell("%s", std::string(2047, ' ').c_str()));
  signal(SIGCHLD, SIG_IGN);  // the status is lost: ECHILD
  EXPECT_TRUE(run_shell("exit 3"));
  signal(SIGCHLD, SIG_DFL);
  errno = ECHILD;
  EXPECT_FALSE(run_shell("exit 3")) << "an old ECHILD does not count";
}

TEST(FlockFile, excludes_other_processes_until_released) {
  static constexpr char kLock[] = "/tmp/base.lock";
  const auto is_free = [] {
    return in_child([] {
             const int fd = open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
             return flock(fd, LOCK_EX | LOCK_NB) == 0 ? 0 : 1;
           }) == 0;
  };
  FlockFile lock;
  EXPECT_FALSE(lock.open("/none/lock", 0600));
  ASSERT_TRUE(lock.open(kLock, 0600));
  EXPECT_TRUE(is_close_on_exec(lock.fd()));
  ASSERT_TRUE(lock.lock_over_signals());
  EXPECT_FALSE(is_free());
  const pid_t heir = fork();  // holds a copy of the descriptor
  if (heir == 0) {
    pause();
    _exit(0);
  }
  lock.release();
  EXPECT_TRUE(is_free()) << "although a child still has the descriptor";
  kill(heir, SIGKILL);
  waitpid(heir, nullptr, 0);
}

TEST(RecordLock, excludes_other_processes) {
  const unique_fd fd = open_fd("/tmp/record.lock", O_RDWR | O_CREAT, 0600);
  const auto is_free = [&] { return in_child([&] { return lock_record_at_once(fd.get()) ? 0 : 1; }) == 0; };
  ASSERT_TRUE(lock_record_waiting(fd.get()));
  EXPECT_FALSE(is_free());
  EXPECT_TRUE(unlock_record(fd.get()));
  EXPECT_TRUE(is_free());
  EXPECT_FALSE(lock_record_at_once(-1));
}

}  // namespace
