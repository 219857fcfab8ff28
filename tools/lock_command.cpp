// lock_command.cpp - who holds the lock of the settings.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>

#include "base/paths.h"
#include "base/unique_fd.h"
#include "tools/ktctl.h"
#include "tools/lock_users.h"
#include "tools/printer.h"

namespace kt::tools {
namespace {

void print_user(Printer& printer, const LockUser& user) {
  const ShortText command = command_of(user.pid);
  if (printer.plain()) {
    (void)printf("%s process %d: %s\n", user.waits ? "waited for by" : "held by",
                 static_cast<int>(user.pid),
                 command.size() != 0 ? command.c_str()
                                     : "it has ended; a process that it started may "
                                       "have taken the lock over");
    return;
  }
  printer.begin_object(nullptr);
  printer.number("pid", user.pid);
  printer.text("command", command.view());
  printer.end_object();
}

void print_users(Printer& printer, int fd, bool waiting) {
  if (!printer.plain()) printer.begin_list(waiting ? "waiting" : "holders");
  LockUsers users(fd);
  for (LockUser user; users.next(user);) {
    if (user.waits == waiting) print_user(printer, user);
  }
  if (!printer.plain()) printer.end_list();
}

enum class Holder { kNone, kKnown, kUnknown };

// Tries the lock only where no holder is known: for that moment it is ours.
Holder find_holder(int fd) {
  LockUsers users(fd);
  for (LockUser user; users.next(user);) {
    if (!user.waits) return Holder::kKnown;
  }
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) return Holder::kUnknown;
  (void)::flock(fd, LOCK_UN);
  return Holder::kNone;
}

}  // namespace

int show_lock(const Request& request) {
  const char* const path = paths::kSettingsLock;
  const unique_fd fd = open_fd(path, O_RDONLY);
  if (!fd.ok() && errno != ENOENT) return fail_errno(path);
  const Holder holder = fd.ok() ? find_holder(fd.get()) : Holder::kNone;
  Printer printer(request);
  if (!printer.plain()) {
    printer.text("file", path);
    printer.flag("held", holder != Holder::kNone);
  } else if (holder != Holder::kKnown) {
    (void)puts(holder == Holder::kNone ? "free" : "held by a process that is unknown here");
  }
  print_users(printer, fd.get(), false);
  print_users(printer, fd.get(), true);
  return holder == Holder::kNone ? kNotFound : kDone;
}

}  // namespace kt::tools
