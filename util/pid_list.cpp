#include "util/pid_list.h"

#include <string.h>
#include <time.h>
#include <unistd.h>

#include "base/line_reader.h"
#include "base/scope_exit.h"
#include "base/shell.h"
#include "base/string_buffer.h"
#include "base/unique_file.h"
#include "ktcomm/util_process.h"
#include "util/small_file.h"

namespace kt {
namespace {

constexpr size_t kLineSize = 512;
constexpr size_t kPathLength = 511;
constexpr int kAttempts = 2;

// The processes of a program, from pidof by way of a file of our own.
PidList ask_pidof(const char* name, int wanted = 0) {
  if (name == nullptr) return {};
  struct timespec now = {};
  (void)clock_gettime(CLOCK_REALTIME, &now);  // the clock is always there
  StringBuffer<kPathLength> path;
  path.append_format("/tmp/%s_%lu_%lu", name, static_cast<unsigned long>(now.tv_sec),
                     static_cast<unsigned long>(now.tv_nsec / 1000));
  if (path.truncated()) return {};

  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const ScopeExit remove([&] { (void)unlink(path.c_str()); });
    // pidof fails when there is no such process: only the list counts.
    (void)run_shell("/bin/pidof %s > %s 2>/dev/null", name, path.c_str());
    const std::optional<PidList> list = read_pid_list(path.c_str(), wanted);
    if (list) return *list;
  }
  return {};
}

}  // namespace

std::optional<PidList> read_pid_list(const char* path, int wanted) {
  const unique_file file = open_file(path, "re");
  if (!file.ok()) return std::nullopt;
  PidList list;
  bool is_first = true;
  char line[kLineSize];
  while (read_line(file.get(), line, sizeof line) != 0) {
    char* rest = nullptr;
    for (const char* word = strtok_r(line, " \r\n", &rest); word != nullptr;
         word = strtok_r(nullptr, " \r\n", &rest)) {
      const int pid = decimal(word);
      if (is_first) list.first = pid;
      is_first = false;
      if (pid > 0) ++list.count;
      if (pid > 0 && pid == wanted) list.found = true;
    }
  }
  return list;
}

}  // namespace kt

int GetAppsPid(const char* name) {
  return kt::ask_pidof(name).first_pid();
}

int GetAppsNum(const char* name) {
  return kt::ask_pidof(name).count;
}

int CheckAppsPidAlive(const char* name, int pid) {
  return kt::ask_pidof(name, pid).found ? 1 : 0;
}

int GetAppsPidBySpecFile(const char* name, const char* pid_list) {
  if (pid_list != nullptr) {
    const int pid = kt::read_pid_list(pid_list).value_or(kt::PidList{}).first_pid();
    if (pid > 0) return pid;
  }
  return GetAppsPid(name);
}
