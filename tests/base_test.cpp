// The private building blocks.
#include "base/file_lock.h"
#include "base/io.h"
#include "base/line_reader.h"
#include "base/line_window.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "base/temp_file.h"
#include "base/text.h"
#include "base/unique_malloc.h"
#include "tests/support.h"

using namespace kt;
using namespace kt::test;
using std::string, std::vector;

namespace {

bool is_close_on_exec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

TEST(StringBuffer, cuts_at_its_capacity_and_remembers_it) {
  StringBuffer<5> text, cut;
  text.append("abc");
  text.append_format("%d", 12);
  text.append("");
  EXPECT_TRUE(text.view() == "abc12" && !text.truncated()) << "exactly full";
  text.append_format("%s", "x");
  text.append("");
  text.append_format("%s", "");
  EXPECT_TRUE(text.view() == "abc12" && text.truncated()) << "for good";
  cut.append("abcdef");
  EXPECT_TRUE(cut.view() == "abcde" && cut.truncated());
}

TEST(Text, prefixes_and_bounded_copies) {
  EXPECT_TRUE(has_prefix("abc", "ab") && has_prefix("ab", "ab") && has_prefix("ab", "") && !has_prefix("ab", "abc"));
  char fields[] = "#######";
  copy_cut(fields, 3, "abc");
  copy_cut(fields + 3, 3, "d");
  EXPECT_EQ(string(fields, 7), string("ab\0d\0##", 7)) << "the rest is left alone";
}

TEST(LineReader, splits_at_line_feeds_and_at_the_size_only) {
  write_file("/tmp/lines", string("ab\n\nabcdefg\nx\0y\nlast", 20));
  const unique_file file = open_file("/tmp/lines", "re");
  char buffer[5];
  vector<string> lines;
  while (const size_t length = read_line(file.get(), buffer, sizeof buffer)) lines.emplace_back(buffer, length + 1);
  EXPECT_EQ(lines, (vector<string>{{"ab\n", 4}, {"\n", 2}, {"abcd", 5}, {"efg\n", 5}, {"x\0y\n", 5}, {"last", 5}}));
}

TEST(LineWindow, sees_what_read_line_sees_and_leaves_the_stream_where_that_does) {
  string content;
  for (unsigned i = 0, x = 1; i < 3000; ++i) content += "a[\n\0[b\na"[((x = x * 1103515245 + 12345) >> 16) % 8];
  char line[7], room[4096];
  for (const size_t size : {7u, 8u, 4095u, 4096u}) {
    write_file("/tmp/lines", content + (size % 2 == 0 ? "\nlast\n" : "\nlast"));
    for (const bool finds : {false, true}) {
      const unique_fd fd = open_fd("/tmp/lines", O_RDONLY);
      const unique_file slow = open_file("/tmp/lines", "re"), fast = open_file("/tmp/lines", "re");
      LineWindow lines(fd.get(), {room, size}, 6);
      for (int count = 1; const size_t length = read_line(slow.get(), line, sizeof line); ++count) {
        if (finds && line[0] != '[') continue;
        ASSERT_TRUE(!finds || lines.skip_to('['));
        ASSERT_EQ(lines.next(), std::string_view(line, length)) << size;
        if (count % 64 != 0 && line[0] != 'l') continue;
        char other_room[4096];
        LineWindow again(fast.get(), {other_room, size}, 6);
        for (int i = 0; i < count; ++i) (void)again.next();
        again.put_back();
        EXPECT_TRUE(ftell(fast.get()) == ftell(slow.get()) && feof(fast.get()) == feof(slow.get())) << size;
      }
      EXPECT_TRUE(!(finds && lines.skip_to('[')) && lines.next().empty() && !lines.failed());
    }
  }
}

TEST(LineWindow, takes_no_more_of_a_pipe_than_lines_and_tells_the_rest_from_a_failure) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], "x[\n[b\nc\nd", 9), 9);
  close(ends[1]);
  const unique_file pipe = open_file(unique_fd(ends[0]), "r");
  char room[8];
  LineWindow lines(pipe.get(), room, 4);
  EXPECT_TRUE(lines.skip_to('[') && lines.next() == "[b\n");
  lines.put_back();
  EXPECT_EQ(fgetc(pipe.get()), 'c');
  EXPECT_TRUE(lines.next() == "\n" && lines.next_block() == "d" && lines.next_block().empty() && !lines.failed());
  const unique_fd directory = open_fd("/tmp", O_RDONLY);
  LineWindow none(directory.get(), room, 4);
  EXPECT_TRUE(none.next().empty() && none.failed());
}

TEST(TempFile, is_deleted_with_its_object_or_by_the_next_one) {
  {
    TempFile file;
    EXPECT_TRUE(file.create("/tmp/tXXXXXX") && file.create("/tmp/tXXXXXX"));
    EXPECT_TRUE(is_close_on_exec(fileno(file.stream())) && fputs("x", file.stream()) >= 0 && file.close());
    EXPECT_TRUE(read_file(file.path()) == "x" && files_in("/tmp", "t").size() == 1);
  }
  TempFile file;
  EXPECT_FALSE(file.create("/none/XXXXXX") || file.close() || !files_in("/tmp", "t").empty() || *file.path() != 0);
}

TEST(Owners, report_a_lost_write_and_keep_errno) {
  unique_file now = open_file("/dev/full", "we"), before = open_file("/dev/full", "we");
  EXPECT_TRUE(fputs("x", now.get()) >= 0 && fputs("x", before.get()) >= 0 && fflush(before.get()) == EOF);
  EXPECT_FALSE(now.close() || before.close());
  unique_fd first = open_fd("/dev/null", O_RDONLY), second = std::move(first);
  const int fd = second.get();
  EXPECT_TRUE(!first.ok() && is_close_on_exec(fd) && second.close() == 0 && !second.ok());
  errno = ENOENT;
  unique_fd(fd).reset();
  EXPECT_EQ(errno, ENOENT) << "though it was closed already";
  EXPECT_TRUE(allocate<int>(10) != nullptr && allocate<int>(static_cast<size_t>(-1) / sizeof(int) + 2) == nullptr);
}

TEST(Io, whole_transfers_through_a_slow_and_interrupted_pipe) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  string data;
  while (data.size() < 300000) data += std::to_string(data.size());
  const auto write = [&] { return interrupt_every_10_ms(), !write_fully(ends[1], data.data(), data.size()); };
  const pid_t writer = start_child(write);
  close(ends[1]);
  usleep(50000);  // the pipe is full, the writer waits
  string got(data.size(), ' ');
  EXPECT_EQ(read_fully(ends[0], got.data(), 100001), 100001);
  EXPECT_EQ(read_fully(ends[0], got.data() + 100001, data.size()), data.size() - 100001) << "up to the end";
  EXPECT_TRUE(got == data && wait_for_child(writer) == 0);
  close(ends[0]);
  EXPECT_TRUE(read_fully(ends[0], got.data(), 1) == -1 && !write_fully(ends[0], "x", 1));
}

TEST(RunShell, tells_how_the_command_ended) {
  EXPECT_TRUE(run_shell("exit %d", 0) && run_shell("%s", string(2047, ' ').c_str()));
  EXPECT_FALSE(run_shell("exit 3") || run_shell("kill -9 $$") || run_shell("%s", string(2048, ' ').c_str()));
  signal(SIGCHLD, SIG_IGN);  // the status is lost: ECHILD
  EXPECT_TRUE(run_shell("exit 3"));
  signal(SIGCHLD, SIG_DFL);
  errno = ECHILD;
  EXPECT_FALSE(run_shell("exit 3")) << "an old ECHILD does not count";
}

TEST(FlockFile, excludes_other_processes_until_released) {
  const char path[] = "/tmp/base.lock";
  const auto is_free = [&] { return in_child([&] { return flock(open(path, O_RDWR), LOCK_SH | LOCK_NB); }) == 0; };
  FlockFile lock;
  EXPECT_FALSE(lock.open("/none/lock", 0600));
  EXPECT_TRUE(lock.open(path, 0600) && is_close_on_exec(lock.fd()) && lock.lock_over_signals() && !is_free());
  const pid_t heir = start_child(pause);  // holds a copy of the descriptor
  lock.release();
  EXPECT_TRUE(is_free()) << "although a child still has the descriptor";
  EXPECT_EQ(kill(heir, SIGKILL) + wait_for_child(heir), -SIGKILL);
}

TEST(RecordLock, excludes_other_processes) {
  const unique_fd fd = open_fd("/tmp/record.lock", O_RDWR | O_CREAT, 0600);
  const auto is_free = [&] { return in_child([&] { return lock_record_at_once(fd.get()); }) == 1; };
  EXPECT_TRUE(lock_record_waiting(fd.get()) && !is_free());
  EXPECT_TRUE(unlock_record(fd.get()) && is_free() && !lock_record_at_once(-1));
}

}  // namespace
