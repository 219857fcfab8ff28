// cron_daemon.cpp - start and stop the cron daemon.
#include <ktcomm/sched.h>
#include <ktcomm/util_process.h>
#include <unistd.h>

#include "base/pause.h"
#include "tools/ktctl.h"
#include "tools/would_set.h"

namespace kt::tools {
namespace {

constexpr char kDaemon[] = "crond";
constexpr char kProgram[] = "/usr/sbin/crond";
constexpr unsigned kPoll_ms = 100;
constexpr int kPolls = 30;
constexpr int kSettled = 4;  // looks in a row that show the same process

// Going into the background changes the process, and one that finds its files
// wrong ends soon.
[[nodiscard]] bool wait_until_it_runs() {
  int last = 0;
  int same = 0;
  for (int polls = 0; polls < kPolls && same < kSettled; ++polls) {
    pause_ms(kPoll_ms);
    const int pid = GetAppsPid(kDaemon);
    same = pid > 0 && pid == last ? same + 1 : 0;
    last = pid;
  }
  return same == kSettled;
}

}  // namespace

int start_cron(const Request& request) {
  const bool runs = GetAppsPid(kDaemon) > 0;
  if (runs) return request.dry_run() ? would_change_nothing() : kDone;
  if (::access(kProgram, X_OK) != 0) return fail_errno(kProgram);
  if (request.dry_run()) return would("start %s", kProgram);
  (void)SCHDStartSchedule();  // tells nothing
  if (wait_until_it_runs()) return kDone;
  return fail(kSystemError, "%s: not running 3 seconds after its start", kProgram);
}

int stop_cron(const Request& request) {
  const int pid = GetAppsPid(kDaemon);
  if (pid <= 0) return request.dry_run() ? would_change_nothing() : kDone;
  if (request.dry_run()) return would("end crond, process %d", pid);
  (void)SCHDStopSchedule();  // tells nothing
  for (int polls = 0; polls < kPolls; ++polls) {
    if (GetAppsPid(kDaemon) <= 0) return kDone;
    pause_ms(kPoll_ms);
  }
  return fail(kSystemError, "crond: still running");
}

}  // namespace kt::tools
