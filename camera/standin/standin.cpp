// standin.cpp - stands in for a daemon or program of the camera, whichever name
// it is started by.
//
// /tmp/standin/NAME.log receives a line "start ARGUMENT..." for every start and
// a line "signal NUMBER" for every signal. Daemons go into the background and
// end on signal 15. hydra also leaves its process id in /tmp/hydra.lock and
// plays the recorder: signal 22 starts a recording (if there is a card to record
// to) and signal 18 ends it.
#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>

#include "daemon.h"

namespace {

constexpr char kHydraLock[] = "/tmp/hydra.lock";
constexpr char kRecording[] = "/tmp/mmcsd_rec.lock";
constexpr char kRecordings[] = "/mnt/mmc/ktmmc";

enum : int { kEnd = 15, kStopRecording = 18, kStartRecording = 22 };

// Programs that do their work and end; all others are daemons.
constexpr const char* kPrograms[] = {"auth", "kt_time_control", "ntp_setcron"};

char log_path[64];

bool is_program(const char* name) {
  for (const char* program : kPrograms) {
    if (strcmp(name, program) == 0) return true;
  }
  return false;
}

void record_start(int argc, char** argv) {
  char line[1024];
  size_t used = static_cast<size_t>(snprintf(line, sizeof line, "start"));
  for (int i = 1; i < argc && used + 1 < sizeof line; ++i) {
    const int more = snprintf(line + used, sizeof line - used, " %s", argv[i]);
    used += static_cast<size_t>(more);
  }
  if (used >= sizeof line) used = sizeof line - 1;
  line[used++] = '\n';
  camera::append(log_path, line, used);
}

void record_signal(int number) {
  char line[24];
  const int length = snprintf(line, sizeof line, "signal %d\n", number);
  camera::append(log_path, line, static_cast<size_t>(length));
}

void write_hydra_lock(pid_t pid) {
  char text[16];
  const int length = snprintf(text, sizeof text, "%d\n", static_cast<int>(pid));
  (void)unlink(kHydraLock);
  camera::append(kHydraLock, text, static_cast<size_t>(length));
}

void record_to_card(int signal_number) {
  if (signal_number != kStartRecording) {
    (void)unlink(kRecording);
  } else if (access(kRecordings, F_OK) == 0) {
    camera::append(kRecording, "", 0);
  }
}

void serve_signals(const sigset_t& signals, bool recorder) {
  for (;;) {
    const int number = sigwaitinfo(&signals, nullptr);
    if (number < 0) continue;
    record_signal(number);
    if (recorder && (number == kStartRecording || number == kStopRecording || number == kEnd)) {
      record_to_card(number);
    }
    if (number == kEnd) return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const char* slash = strrchr(argv[0], '/');
  const char* name = slash ? slash + 1 : argv[0];
  (void)mkdir("/tmp/standin", 0777);
  (void)snprintf(log_path, sizeof log_path, "/tmp/standin/%s.log", name);

  // Blocked before the start is told, so that no signal passes unrecorded.
  sigset_t signals;
  (void)sigfillset(&signals);
  if (!is_program(name)) (void)sigprocmask(SIG_BLOCK, &signals, nullptr);
  record_start(argc, argv);
  if (is_program(name)) return 0;

  const bool recorder = strcmp(name, "hydra") == 0;
  camera::become_daemon(recorder ? write_hydra_lock : nullptr);
  serve_signals(signals, recorder);
  if (recorder) (void)unlink(kHydraLock);
  return 0;
}
