#include "base/shell.h"
#include "ktcomm/sched.h"

int SCHDStartSchedule(void) {
  (void)kt::run_shell("/usr/sbin/crond    >/dev/null 2>/dev/null &");  // not reported
  return 0;
}

int SCHDStopSchedule(void) {
  (void)kt::run_shell("/usr/bin/killall crond>/dev/null 2>/dev/null");  // none may be running
  return 0;
}
