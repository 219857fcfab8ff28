#include <unistd.h>

#include "base/paths.h"
#include "base/pause.h"
#include "base/shell.h"
#include "ktcomm/sdcard.h"
#include "ktcomm/util_process.h"
#include "sdcard/events.h"

namespace kt {
namespace {

constexpr char kRecorder[] = "hydra";
constexpr char kTriggerProgram[] = "mmcsd_put";

// The recorder's own meanings of these signals.
enum RecorderSignal : int { kStopRecording = 18, kStartRecording = 22 };

constexpr int kRecorderPolls = 60;
constexpr unsigned kRecorderPoll_ms = 500;
constexpr unsigned kRecorderSettles_ms = 1000;
constexpr int kTriggerPolls = 11;
constexpr unsigned kTriggerPoll_ms = 1000;
constexpr unsigned kKillTakes_ms = 10;

// Asks up to `polls` times, with a pause after each answer of no, and once more
// after the last pause.
template <typename F>
[[nodiscard]] bool poll(int polls, unsigned pause, F is_done) {
  for (int i = 0; i < polls; ++i) {
    if (is_done()) return true;
    pause_ms(pause);
  }
  return is_done();
}

void signal_recorder(RecorderSignal signal) {
  // Without a recorder there is nobody to be told.
  (void)SendSignal2AppsBySpecFile(kRecorder, signal, paths::kHydraLock);
}

}  // namespace
}  // namespace kt

using namespace kt;

int sd_rec_start(void) {
  signal_recorder(kStartRecording);
  return 0;
}

int sd_rec_stop(int log_code) {
  signal_recorder(kStopRecording);
  if (sd_wait_rec_exit() != 0) return -1;
  pause_ms(kRecorderSettles_ms);
  if (log_code != 0) log_record_event(log_code);
  return 0;
}

int sd_wait_rec_exit(void) {
  const auto is_gone = [] { return ::access(paths::kCardRecordingLock, F_OK) != 0; };
  return poll(kRecorderPolls, kRecorderPoll_ms, is_gone) ? 0 : -1;
}

int sd_clear_rec_lock_file(void) {
  (void)::unlink(paths::kCardRecordingLock);  // it may not be there
  return 0;
}

int mmcsd_wait_trigger_stop(void) {
  const auto has_ended = [] { return GetAppsPid(kTriggerProgram) == 0; };
  if (poll(kTriggerPolls, kTriggerPoll_ms, has_ended)) return 0;
  (void)run_shell("/usr/bin/killall %s >/dev/null 2>/dev/null", kTriggerProgram);
  pause_ms(kKillTakes_ms);
  return 0;
}
