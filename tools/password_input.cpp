#include "tools/password_input.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include "base/io.h"
#include "base/string_buffer.h"
#include "base/text.h"
#include "base/unique_fd.h"
#include "tools/ktctl.h"

namespace kt::tools {
namespace {

using Line = StringBuffer<KT_USER_PASSWORD_SIZE - 1>;

enum class Outcome { kLine, kEnd, kError, kSignal };

// While it lives, the terminal does not show what is typed, and signals wait: one
// that ended the process then would leave the terminal like this.
class SilentTerminal {
 public:
  SilentTerminal() {
    sigset_t waiting;
    (void)sigemptyset(&waiting);
    (void)sigprocmask(SIG_SETMASK, nullptr, &before_);
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP}) {
      if (sigismember(&before_, number) == 0) (void)sigaddset(&waiting, number);
    }
    (void)sigprocmask(SIG_BLOCK, &waiting, nullptr);
    signals_.reset(::signalfd(-1, &waiting, SFD_CLOEXEC));
    ok_ = signals_.ok() && ::tcgetattr(STDIN_FILENO, &shown_) == 0;
    termios hidden = shown_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    hidden.c_lflag |= ECHONL;
    ok_ = ok_ && ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) == 0;
  }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;
  ~SilentTerminal() {
    if (ok_) (void)::tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown_);
    (void)sigprocmask(SIG_SETMASK, &before_, nullptr);
  }

  [[nodiscard]] bool ok() const { return ok_; }

  // Readable while a signal waits.
  [[nodiscard]] int signals() const { return signals_.get(); }

 private:
  sigset_t before_;
  unique_fd signals_;
  termios shown_ = {};
  bool ok_ = false;
};

// Takes no character more than the line has: what follows is for others. With a
// `signals` of -1 none is waited for.
Outcome read_line(int signals, Line& line) {
  size_t count = 0;
  for (;; ++count) {
    pollfd inputs[] = {{STDIN_FILENO, POLLIN, 0}, {signals, POLLIN, 0}};
    if (retry_eintr([&] { return ::poll(inputs, 2, -1); }) < 0) return Outcome::kError;
    if (inputs[1].revents != 0) return Outcome::kSignal;
    char c;
    const ssize_t got = retry_eintr([&] { return ::read(STDIN_FILENO, &c, 1); });
    if (got < 0) return Outcome::kError;
    if (got == 0) return count == 0 ? Outcome::kEnd : Outcome::kLine;
    if (c == '\n') return Outcome::kLine;
    line.append({&c, 1});
  }
}

Outcome ask(const char* prompt, Line& line) {
  const SilentTerminal terminal;
  if (!terminal.ok()) return Outcome::kError;
  (void)fputs(prompt, stderr);
  return read_line(terminal.signals(), line);
}

// Asks again when a signal only stopped us for a while.
Outcome ask_until_answered(const char* prompt, Line& line) {
  Outcome outcome;
  do {
    line = Line();
    outcome = ask(prompt, line);
  } while (outcome == Outcome::kSignal);
  return outcome;
}

int explain(Outcome outcome) {
  if (outcome == Outcome::kLine) return kDone;
  if (outcome == Outcome::kEnd) return fail(kUsage, "standard input: no line with a password");
  return fail(kSystemError, "standard input: %s", strerror(errno));
}

int check_password(const Line& line, Password& password) {
  if (line.truncated()) {
    return fail(kRefused, "the password: more than %d characters", KT_USER_PASSWORD_SIZE - 1);
  }
  if (!is_account_text(line.view())) {
    return fail(kRefused, "the password: only printable ASCII characters but , and ; are allowed");
  }
  copy_cut(password.text, sizeof password.text, line.view());
  return kDone;
}

}  // namespace

bool is_account_text(std::string_view text) {
  StringBuffer<KT_USER_PASSWORD_SIZE + 1> entry;
  entry.append("x,");
  entry.append(text);
  char name[KT_USER_NAME_SIZE];
  char password[KT_USER_PASSWORD_SIZE];
  return check_user_data(entry.c_str(), name, password) == 0 && strlen(password) == text.size();
}

int read_password(Password& password) {
  const bool asks = ::isatty(STDIN_FILENO) == 1;
  Line line;
  int code = explain(asks ? ask_until_answered("Password: ", line) : read_line(-1, line));
  if (code == kDone) code = check_password(line, password);
  if (code != kDone || !asks) return code;
  Line again;
  code = explain(ask_until_answered("Once more: ", again));
  if (code == kDone && again.view() != line.view()) {
    return fail(kRefused, "the password: these were two different ones");
  }
  return code;
}

}  // namespace kt::tools
