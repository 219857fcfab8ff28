// proc_commands.cpp - finding programs, and signalling them.
#include <ctype.h>
#include <errno.h>
#include <ktcomm/util_process.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <optional>

#include "base/unique_malloc.h"
#include "tools/ktctl.h"
#include "tools/number.h"
#include "tools/printer.h"

namespace kt::tools {
namespace {

constexpr struct {
  const char* name;
  int number;
} kSignals[] = {
    {"HUP", SIGHUP},   {"INT", SIGINT},   {"QUIT", SIGQUIT}, {"ABRT", SIGABRT}, {"KILL", SIGKILL},
    {"USR1", SIGUSR1}, {"USR2", SIGUSR2}, {"PIPE", SIGPIPE}, {"ALRM", SIGALRM}, {"TERM", SIGTERM},
    {"CHLD", SIGCHLD}, {"CONT", SIGCONT}, {"STOP", SIGSTOP}, {"TSTP", SIGTSTP}, {"WINCH", SIGWINCH},
};

std::optional<int> find_signal(const char* text) {
  const auto number = parse_number(text);
  if (number) return *number >= 0 && *number < NSIG ? number : std::nullopt;
  const char* const name = strncasecmp(text, "SIG", 3) == 0 ? text + 3 : text;
  for (const auto& signal : kSignals) {
    if (strcasecmp(signal.name, name) == 0) return signal.number;
  }
  return std::nullopt;
}

// Names reach a shell, and the names of files.
[[nodiscard]] bool check_name(const char* name) {
  const char* c = name;
  while (isalnum(static_cast<unsigned char>(*c)) != 0 || (*c != '\0' && strchr("._+", *c)) ||
         (*c == '-' && c != name)) {
    ++c;
  }
  if (*c == '\0' && c != name && c - name <= NAME_MAX) return true;
  (void)fail(kRefused, "%s: a program's name is made of letters, digits and . _ + -", name);
  return false;
}

// ---- Finding --------------------------------------------------------------

// The processes of a program, as the library's own search finds them.
class PidList {
 public:
  // False when they cannot be searched for.
  [[nodiscard]] bool find(const char* name) {
    constexpr int kFound = 0;
    constexpr int kNone = 1;
    cf_string text = {};
    const int status = CFSystem2(&text, nullptr, "/bin/pidof", name, static_cast<char*>(nullptr));
    text_.reset(text.str);
    next_ = text.str;
    return status == kFound || status == kNone;
  }

  // The next pid; 0 at the end.
  [[nodiscard]] int next() {
    if (next_ == nullptr) return 0;
    char* end = next_;
    const long pid = strtol(next_, &end, 10);
    next_ = end;
    return static_cast<int>(pid);
  }

 private:
  unique_malloc<char> text_;
  char* next_ = nullptr;
};

int find_program(Printer& printer, const char* name) {
  if (!check_name(name)) return kRefused;
  PidList pids;
  if (!pids.find(name)) return fail(kSystemError, "/bin/pidof: cannot be run");
  int pid = pids.next();
  if (!printer.plain()) printer.begin_list(name);
  const int code = pid != 0 ? kDone : fail(kNotFound, "%s: no such program is running", name);
  for (; pid != 0; pid = pids.next()) {
    if (printer.plain()) {
      (void)printf("%d\n", pid);
    } else {
      printer.number(nullptr, pid);
    }
  }
  if (!printer.plain()) printer.end_list();
  return code;
}

// ---- Signalling -----------------------------------------------------------

int explain_kill(int pid) {
  if (errno == ESRCH) return fail(kNotFound, "process %d: not found", pid);
  return fail(kSystemError, "process %d: %s", pid, strerror(errno));
}

int signal_process(const Request& request, int pid, int number) {
  if (pid < 1) return fail(kRefused, "%d: a process has a number above 0", pid);
  // Signal 0 tells whether there is such a process, and whether it may be signalled.
  if (::kill(pid, request.dry_run() ? 0 : number) != 0) return explain_kill(pid);
  return request.dry_run() ? would("send signal %d to process %d", number, pid) : kDone;
}

int signal_program(const Request& request, const char* name, int number) {
  if (!check_name(name)) return kRefused;
  const int pid = GetAppsPid(name);
  if (pid < 1) return fail(kNotFound, "%s: no such program is running", name);
  if (request.dry_run()) return signal_process(request, pid, number);
  constexpr const char* kNoPidList = "";
  return SendSignal2AppsBySpecFile(name, number, kNoPidList) == 0 ? kDone : explain_kill(pid);
}

}  // namespace

int find_programs(const Request& request) {
  Printer printer(request);
  int worst = kDone;
  for (int i = 0; i < request.count; ++i) {
    const int code = find_program(printer, request.arguments[i]);
    if (code > worst) worst = code;
  }
  return worst;
}

int signal_programs(const Request& request) {
  const char* const target = request.arguments[0];
  const auto number = find_signal(request.arguments[1]);
  if (!number) return fail(kUsage, "%s: there is no such signal", request.arguments[1]);
  const auto pid = parse_number(target);
  return pid ? signal_process(request, *pid, *number) : signal_program(request, target, *number);
}

}  // namespace kt::tools
