// support.h - what the tests of several modules share.
#ifndef KTCOMM_TESTS_SUPPORT_H
#define KTCOMM_TESTS_SUPPORT_H

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "base/unique_dir.h"
#include "base/unique_file.h"

namespace kt::test {

inline constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf", kDefaults[] = "/etc/def_sys.conf";

inline void write_file(const std::string& path, const std::string& content) {
  unique_file file = open_file(path.c_str(), "we");
  EXPECT_TRUE(file.ok() && fwrite(content.data(), 1, content.size(), file.get()) == content.size() && file.close())
      << path;
}

// The content of a file; "(none)" when there is no such file.
inline std::string read_file(const std::string& path) {
  const unique_file file = open_file(path.c_str(), "re");
  std::string content = file.ok() ? "" : "(none)";
  char piece[4096];
  for (size_t n; file.ok() && (n = fread(piece, 1, sizeof piece, file.get())) > 0;) content.append(piece, n);
  return content;
}

inline bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// The names in a directory that begin with `prefix`.
inline std::vector<std::string> files_in(const char* directory, const std::string& prefix = "") {
  std::vector<std::string> names;
  unique_dir listing(directory);
  while (const char* const name = listing.next()) {
    if (*name != '.' && std::string(name).rfind(prefix, 0) == 0) names.push_back(name);
  }
  return names;
}

inline size_t open_descriptors() { return files_in("/proc/self/fd").size(); }

// A test that leaves as many descriptors open as there were.
class CameraTest : public testing::Test {
 protected:
  size_t descriptors_ = open_descriptors();
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_); }
};

// The function of the C library that a double in the test hides. Where the machine
// word is short, those that know large files have names of their own.
template <typename F>
F* libc(const char* name, F*) {
  const std::string large = std::string(name) + "64";
  void* const found = sizeof(long) == 4 ? dlsym(RTLD_NEXT, large.c_str()) : nullptr;
  return reinterpret_cast<F*>(found != nullptr ? found : dlsym(RTLD_NEXT, name));
}

// What several calls return, or leave, in their order.
using Results = std::vector<long long>;
inline void expect_all(long long expected, const Results& results) {
  EXPECT_EQ(results, Results(results.size(), expected));
}

// Runs `body` in a child process, which ends with its result.
pid_t start_child(auto body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

// The exit status of a child, or -signal.
inline int wait_for_child(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int in_child(auto body) { return wait_for_child(start_child(body)); }

// A process that goes by `name` until a signal ends it.
class Program {
 public:
  explicit Program(const char* name) {
    char own[16];
    prctl(PR_GET_NAME, own), prctl(PR_SET_NAME, name);
    pid_ = start_child([] { return pause(); });
    prctl(PR_SET_NAME, own);
  }
  ~Program() { ended_by(); }
  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] std::string text() const { return std::to_string(pid_); }  // of its pid
  // The signal that came first: this call sends SIGKILL.
  int ended_by() {
    if (pid_ != 0) kill(pid_, SIGKILL), signal_ = -wait_for_child(pid_), pid_ = 0;
    return signal_;
  }

 private:
  pid_t pid_ = 0;
  int signal_ = 0;
};

// Runs `body(i)` in `count` processes at once; true when all of them returned 0.
bool in_processes(int count, auto body) {
  std::vector<pid_t> children;
  for (int i = 0; i < count; ++i) children.push_back(start_child([&] { return body(i); }));
  int failed = 0;
  for (const pid_t pid : children) failed += wait_for_child(pid) != 0;
  return failed == 0;
}

// Ends whatever waits in this process with EINTR, again and again until ualarm(0, 0).
inline void interrupt_every_10_ms() {
  struct sigaction action = {};
  action.sa_handler = [](int) {};  // no SA_RESTART
  sigaction(SIGALRM, &action, nullptr);
  ualarm(10000, 10000);
}

// Runs `action`, interrupted all the time, while another process holds the lock
// at `path`; expects it to wait until that one is killed, and to return 0.
void expect_waits_for_lock(const char* path, auto action) {
  const int lock = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  const pid_t holder = start_child([=] { return usleep(200000) + unlink(path) + raise(SIGKILL); });
  close(lock);
  interrupt_every_10_ms();
  EXPECT_EQ(action(), 0);
  ualarm(0, 0);
  EXPECT_FALSE(exists(path)) << "did not wait for the last act of the holder";
  EXPECT_EQ(wait_for_child(holder), -SIGKILL);
}

// Runs `body` a thousand times, after a first time that may set things up, and
// expects neither descriptors nor memory to have been kept.
void expect_nothing_kept(const char* name, auto body, int rounds = 1000) {
  body();
  const size_t descriptors = open_descriptors(), heap = mallinfo2().uordblks;
  for (int i = 0; i < rounds; ++i) body();
  EXPECT_EQ(open_descriptors(), descriptors) << name;
  EXPECT_LE(mallinfo2().uordblks, heap + 512) << name;
}

}  // namespace kt::test

#endif
