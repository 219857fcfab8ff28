/* eventd.c - the camera's event daemon: evaluates the schedules of the configured
 * events each minute, and traces and logs which start and end.
 *
 *     eventd [--foreground] [--port N]
 *
 * Goes into the background; it is ready when the command that started it returns,
 * which then ends with one of the codes below. Its pid is in /tmp/hydra.lock, where
 * RestartEvent looks for it. It listens on port N to show that it is alive, for
 * CFIsProcessAlive: without N on "event_alive_port" of the settings, or 8190.
 *
 * Signals: 10 reads the events again, 14 (SIGALRM) evaluates them, 15 and 2 end the
 * daemon; 18 and 22 are for a recorder, which it is not. */
#define _POSIX_C_SOURCE 200809L /* for -std=c99 */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "eventd.h"

#define LOCK_FILE "/tmp/hydra.lock"

enum { DEFAULT_PORT = 8190, HIGHEST_PORT = 65535 };
enum { DONE = 0, FAILED = 1, ALREADY_RUNNING = 2, MISUSED = 3 };

/* What the library sends by these numbers: RestartEvent, sd_rec_stop, sd_rec_start. */
enum { RELOAD = 10, STOP_RECORDING = 18, START_RECORDING = 22 };

/* ---- Options ----------------------------------------------------------- */

struct options {
  int foreground;
  int port;
};

/* The port of the settings. */
static int configured_port(void) {
  int port = DEFAULT_PORT; /* stays when the key is found nowhere */
  FILE* const settings = fopen(SETTINGS, "re");
  PRO_GetInt("EVENT", "event_alive_port", &port, settings); /* null: the factory defaults */
  if (settings != NULL) fclose(settings);
  return port;
}

static int read_port(const char* text, int* port) {
  char* end;
  const long value = strtol(text, &end, 10);
  if (*end != '\0' || value < 1 || value > HIGHEST_PORT) return -1;
  *port = (int)value;
  return 0;
}

static int read_options(char** argv, struct options* options) {
  while (*++argv != NULL) {
    if (strcmp(*argv, "--foreground") == 0) {
      options->foreground = 1;
    } else if (strcmp(*argv, "--port") == 0 && argv[1] != NULL) {
      if (read_port(*++argv, &options->port) != 0) return -1;
    } else {
      return -1;
    }
  }
  return 0;
}

/* ---- Into the background ------------------------------------------------ */

/* Closes what the starter left open: a client's connection, or a lock, would last as
 * long as the daemon. */
static void close_inherited(void) {
  for (int fd = STDERR_FILENO + 1; fd < FD_SETSIZE; ++fd) close(fd);
}

/* Opens /dev/null. Where standard streams are closed it takes their places as well:
 * what is opened later must not come to lie there. */
static int open_null(void) {
  int null;
  do null = open("/dev/null", O_RDWR | O_CLOEXEC);
  while (null >= 0 && null <= STDERR_FILENO);
  return null;
}

/* Waits for the byte that the daemon sends when it is ready. Returns the code to end
 * with: the daemon's own, when it has ended instead. */
static int wait_until_ready(int fd, pid_t daemon) {
  char byte;
  int status;
  if (read(fd, &byte, 1) == 1) return DONE;
  return waitpid(daemon, &status, 0) == daemon && WIFEXITED(status) ? WEXITSTATUS(status) : FAILED;
}

/* Goes on as a child, in a session of its own. Returns the descriptor for
 * leave_terminal; -1 with errno set. */
static int go_into_background(void) {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  const pid_t pid = fork();
  if (pid < 0) return -1;
  close(ends[pid == 0 ? 0 : 1]);
  if (pid > 0) _exit(wait_until_ready(ends[0], pid));
  signal(SIGPIPE, SIG_IGN); /* whoever waits for us may be gone */
  /* From "/", which no unmounting of a card has to wait for. */
  if (setsid() < 0 || chdir("/") != 0 || fcntl(ends[1], F_SETFD, FD_CLOEXEC) != 0) return -1;
  return ends[1];
}

/* Lets go of the standard streams, through which failures could be told until now, and
 * of whoever waits. */
static void leave_terminal(int null, int ready) {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) dup2(null, fd);
  if (write(ready, "", 1) != 1) TRACE(TRACE_PROGRESS, "nobody waits: %s", strerror(errno));
  close(ready);
}

/* ---- One instance ------------------------------------------------------- */

/* The port comes first: only one process can have it, while two that start in the
 * same moment can both take the lock file. */
static int become_the_one(int port) {
  if (CFToggleProcessAlive(port) != 0) {
    fprintf(stderr, "eventd: port %d cannot be had: is eventd running?\n", port);
    return ALREADY_RUNNING;
  }
  switch (create_apps_lock_file(LOCK_FILE)) {
    case 0:
      return DONE;
    case 2:
      fputs("eventd: the process of " LOCK_FILE " is running\n", stderr);
      return ALREADY_RUNNING;
    default:
      fputs("eventd: " LOCK_FILE " cannot be written\n", stderr);
      return FAILED;
  }
}

/* ---- The loop ----------------------------------------------------------- */

/* Evaluates the events, and again when this minute is over: the alarm is set first, as
 * the rest may outlast the minute. One that comes early (the clock was set back, or
 * runs slow) sets the next. */
static void evaluate_each_minute(void) {
  const time_t now = time(NULL);
  alarm((unsigned)(60 - localtime(&now)->tm_sec % 60));
  evaluate_events();
}

static int on_signal(cf_fdevents* set, cf_fdevent* event, int fd, void* stopped) {
  const int signo = cf_sigfd_get_next_signal(fd);
  switch (signo) {
    case RELOAD:
      read_events();
      evaluate_each_minute();
      break;
    case SIGALRM:
      evaluate_each_minute();
      break;
    case STOP_RECORDING:
    case START_RECORDING:
      TRACE(TRACE_PROGRESS, "signal %d: no recorder here", signo);
      break;
    case SIGTERM:
    case SIGINT:
      *(int*)stopped = 1;
      cf_fdevents_del(set, event); /* the loop ends with nothing to wait for */
      break;
    default: /* the pipe has ended: it would be readable for ever */
      cf_fdevents_del(set, event);
  }
  return 0;
}

static int serve(int signals) {
  int stopped = 0;
  cf_fdevents set;
  cf_fdevent event;
  cf_fdevents_init(&set);
  cf_fdevent_init(&event, signals, on_signal, &stopped, NULL, NULL);
  cf_fdevents_add(&set, &event);
  cf_fdevents_trigger(&set);
  if (!stopped) TRACE(TRACE_FAILURE, "the loop has ended, with signals at %d", signals);
  unlink(LOCK_FILE);
  return stopped ? DONE : FAILED;
}

static int fail(void) {
  perror("eventd");
  return FAILED;
}

static int run(const struct options* options) {
  if (!options->foreground) close_inherited();
  const int null = open_null();
  if (null < 0) return fail();
  const int ready = options->foreground ? -1 : go_into_background();
  if (ready < 0 && !options->foreground) return fail();
  /* In the process that stays, whose pipe it is, and before the lock file can send
   * anybody here: an untaken signal 10 would be the end. */
  const int signals =
      cf_sigfd_open(RELOAD, SIGALRM, SIGTERM, SIGINT, STOP_RECORDING, START_RECORDING, 0);
  if (signals < 0) return fail();
  const int refused = become_the_one(options->port);
  if (refused) return refused;

  read_events();
  evaluate_each_minute();
  TRACE(TRACE_PROGRESS, "ready, port=%d", options->port);
  if (!options->foreground) leave_terminal(null, ready);
  close(null);
  return serve(signals);
}

int main(int argc, char** argv) {
  struct options options = {0, configured_port()};
  if (argc < 1 || read_options(argv, &options) != 0) {
    fputs("usage: eventd [--foreground] [--port N]\n", stderr);
    return MISUSED;
  }
  return run(&options);
}
