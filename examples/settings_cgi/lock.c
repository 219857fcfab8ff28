/* lock.c - waiting for a lock, but not for ever. */
#define _DEFAULT_SOURCE /* for -std=c99 */
#include <signal.h>
#include <string.h>
#include <sys/time.h>

#include "settings_cgi.h"

#define LOCK_WAIT_S 10

static void interrupt_wait(int number) {
  (void)number;
}

static void set_timer(long seconds, long again_microseconds) {
  struct itimerval timer;
  memset(&timer, 0, sizeof timer);
  timer.it_value.tv_sec = seconds;
  timer.it_interval.tv_usec = again_microseconds;
  (void)setitimer(ITIMER_REAL, &timer, NULL);
}

/* A signal ends kt_task_queue_in; it comes again should it strike just before. */
int take_lock(const char* path, Fault* fault) {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = interrupt_wait; /* without SA_RESTART */
  (void)sigaction(SIGALRM, &action, NULL);
  set_timer(LOCK_WAIT_S, 100000);
  const int lock = kt_task_queue_in(path);
  set_timer(0, 0);
  return lock >= 0 ? lock : refuse(fault, BUSY, "other changes are under way, try again");
}
