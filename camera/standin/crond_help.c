/* crond_help.c - makes a real cron daemon run in the private camera. It is
 * loaded into the daemon alone, not into its jobs.
 *
 * - Nobody in the camera may change groups: root's one group is what it has.
 * - With CROND_AHEAD_S set, the daemon's clock is so many seconds ahead of the
 *   machine's, so that the next minute begins when a test wants it to. */
#include <grp.h>
#include <stdlib.h>
#include <time.h>

int initgroups(const char* user, gid_t group) {
  (void)user;
  (void)group;
  return 0;
}

time_t time(time_t* out) {
  const char* const ahead_s = getenv("CROND_AHEAD_S");
  struct timespec now;
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) return (time_t)-1;
  now.tv_sec += ahead_s != NULL ? atol(ahead_s) : 0;
  if (out != NULL) *out = now.tv_sec;
  return now.tv_sec;
}
