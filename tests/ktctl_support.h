// ktctl_support.h - runs of ktctl, as a shell starts it.
#ifndef KTCOMM_TESTS_KTCTL_SUPPORT_H
#define KTCOMM_TESTS_KTCTL_SUPPORT_H

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
  bool ended() { return waitpid(pid_, &status_, WNOHANG) == pid_; }
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
inline std::string message(const std::string& text) {
  return text.empty() ? "" : "ktctl: " + (text[0] == '@' ? kSettings + text.substr(1) : text) + "\n";
}

inline void expect_run(const std::string& arguments, int code, const std::string& out, const std::string& err) {
  EXPECT_EQ(ktctl(arguments), (Result{code, out, message(err)})) << arguments;
}

}  // namespace kt::test

#endif
