// support.h - what the tests of several modules share.
#ifndef KTCOMM_TESTS_SUPPORT_H
#define KTCOMM_TESTS_SUPPORT_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace kt::test {

inline constexpr char kSettings[] = "/mnt/ramdisk/env/system.conf";
inline constexpr char kDefaults[] = "/etc/def_sys.conf";

inline void write_file(const std::string& path, const std::string& content) {
  FILE* const file = fopen(path.c_str(), "we");
  ASSERT_NE(file, nullptr) << path;
  ASSERT_EQ(fwrite(content.data(), 1, content.size(), file), content.size());
  ASSERT_EQ(fclose(file), 0);
}

// The content of a file; "(none)" when there is no such file.
inline std::string read_file(const std::string& path) {
  FILE* const file = fopen(path.c_str(), "re");
  if (file == nullptr) return "(none)";
  std::string content;
  char piece[4096];
  while (const size_t count = fread(piece, 1, sizeof piece, file)) content.append(piece, count);
  fclose(file);
  return content;
}

inline bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// The names in a directory that begin with `prefix`.
inline std::vector<std::string> files_in(const char* directory, const std::string& prefix = "") {
  std::vector<std::string> names;
  DIR* const dir = opendir(directory);
  while (const dirent* entry = dir != nullptr ? readdir(dir) : nullptr) {
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && name.rfind(prefix, 0) == 0) names.push_back(name);
  }
  if (dir != nullptr) closedir(dir);
  return names;
}

inline size_t open_descriptors() { return files_in("/proc/self/fd").size(); }

// Runs `body` in a child process; its result is the exit status, or -signal.
template <typename F>
int in_child(F body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Runs `body(i)` in `count` processes at once; true when all of them returned 0.
template <typename F>
bool in_processes(int count, F body) {
  std::vector<pid_t> children;
  for (int i = 0; i < count; ++i) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body(i));
    children.push_back(pid);
  }
  bool all = true;
  for (const pid_t pid : children) {
    int status = 0;
    all = waitpid(pid, &status, 0) == pid && status == 0 && all;
  }
  return all;
}

// Runs `body` a thousand times, after a first time that may set things up, and
// expects neither descriptors nor memory to have been kept.
template <typename F>
void expect_nothing_kept(const char* name, F body, int rounds = 1000) {
  body();
  const size_t descriptors = open_descriptors();
  [[maybe_unused]] const size_t heap = mallinfo2().uordblks;
  for (int i = 0; i < rounds; ++i) body();
  EXPECT_EQ(open_descriptors(), descriptors) << name;
#ifndef __SANITIZE_ADDRESS__
  EXPECT_LE(mallinfo2().uordblks, heap + 512) << name;
#endif
}

}  // namespace kt::test

#endif
