// ktctl_support.h - runs of ktctl, as a shell starts it.
#ifndef KTCOMM_TESTS_KTCTL_SUPPORT_H
#define KTCOMM_TESTS_KTCTL_SUPPORT_H

#include <sstream>

#include "tests/support.h"

namespace kt::test {

struct Result {
  int code;  // -signal when one ended it
  std::string out, err;
  bool operator==(const Result&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const Result& r) {
  return stream << r.code << "\n" << r.out << r.err;
}

// One run of the tool in a process group of its own, as a shell would start it.
class Process {
 public:
  explicit Process(const std::string& arguments, const char* redirections = "") : pid_(fork()) {
    const std::string line = "exec ktctl " + arguments + " </dev/null >/tmp/run.out 2>/tmp/run.err " + redirections;
    if (pid_ != 0) return;
    setpgid(0, 0);
    execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    _exit(125);
  }
  bool ended() { return status_ >= 0 || waitpid(pid_, &status_, WNOHANG) == pid_; }
  Result wait() {
    if (status_ < 0) waitpid(pid_, &status_, 0);
    const int code = WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
    return {code, read_file("/tmp/run.out"), read_file("/tmp/run.err")};
  }
  pid_t pid() const { return pid_; }
  // Whether it keeps a signal waiting. The C library blocks them all for a moment when
  // a process starts another one: before the command has begun, that does not count.
  bool blocks(int number) {
    const std::string status = read_file("/proc/" + std::to_string(pid_) + "/status");
    const size_t mask = status.find("SigBlk:");
    const auto bits = mask == std::string::npos ? 0 : stoull(status.substr(mask + 8), nullptr, 16);
    const auto blocked = [bits](int n) { return (bits >> (n - 1) & 1) != 0; };
    begun_ = begun_ || (blocked(SIGTERM) && !blocked(SIGUSR1));
    return begun_ && blocked(number);
  }

 private:
  pid_t pid_;
  int status_ = -1;
  bool begun_ = false;
};

inline Result ktctl(const std::string& arguments, const char* redirections = "") {
  return Process(arguments, redirections).wait();
}

// What is said on standard error, "@" standing for the settings file.
inline std::string reason(const std::string& text) {
  return "ktctl: " + (text.starts_with('@') ? kSettings + text.substr(1) : text);
}
inline std::string message(const std::string& text) { return text.empty() ? "" : reason(text) + "\n"; }

inline void expect_run(const std::string& arguments, int code, const std::string& out, const std::string& err) {
  EXPECT_EQ(ktctl(arguments), (Result{code, out, message(err)})) << arguments;
}

// Each of `cases`, between '|', is how a line that begins with `command` goes on, '~' and
// how the reason begins. It ends with `code`, with --dry-run, too, where it takes that,
// and changes nothing.
inline void expect_fails(int code, const std::string& command, const std::string& cases,
                         const char* redirections = "") {
  const auto files = [] { return read_file(kSettings) + read_file("/mnt/ramdisk/crontab"); };
  const std::string before = files();
  std::istringstream list(cases);
  for (std::string line, why; std::getline(list, line, '~') && std::getline(list, why, '|');) {
    for (const std::string& run : {command + line, "--dry-run " + command + line}) {
      const Result r = ktctl(run, redirections);
      if (run[0] == '-' && r.err.find("does not take --dry-run") != r.err.npos) continue;
      EXPECT_TRUE(r.code == code && r.out.empty() && r.err.find(reason(why)) == 0) << run << "\n" << r << why;
    }
  }
  EXPECT_EQ(files(), before) << cases;
}

// The same for each of several runs of a command.
struct Run {
  std::string arguments;
  int code;
  std::string out, err;
};
inline void expect_runs(const std::string& command, const std::vector<Run>& runs) {
  for (const Run& run : runs) expect_run(command + " " + run.arguments, run.code, run.out, run.err);
}

}  // namespace kt::test

#endif
