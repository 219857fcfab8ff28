// settings_lock.h - the lock that all writers of settings hold, and the time in
// which a write must not be interrupted.
#ifndef KTCOMM_TOOLS_SETTINGS_LOCK_H
#define KTCOMM_TOOLS_SETTINGS_LOCK_H

#include <signal.h>

#include "base/file_lock.h"

namespace kt::tools {

class SettingsLock {
 public:
  // Waits for the lock. Returns kDone, or the exit code after it has said why not.
  [[nodiscard]] int wait();

  // For readers, so that they do not see a file that is just being replaced.
  // Tries for 0.1 second and goes on without: whoever holds the lock for longer
  // is saving, not writing to the file.
  void try_for_a_moment();

 private:
  FlockFile lock_;
};

// Waits until nobody holds the lock; returns what `wait` does. Done before signals are
// kept waiting, it lets a person give up on a lock that stays held.
[[nodiscard]] int wait_until_unlocked();

// While it lives, signals wait, in this process and in the shell commands that it
// runs: one from the terminal would end such a command half way, leave scratch files
// behind, or stop a writer that holds the lock.
class WaitingSignals {
 public:
  WaitingSignals();
  WaitingSignals(const WaitingSignals&) = delete;
  WaitingSignals& operator=(const WaitingSignals&) = delete;
  ~WaitingSignals();

 private:
  sigset_t before_;
};

// The same for a write. From then on a reader of our output that has gone is an error
// of that output and no signal.
class Uninterrupted {
 public:
  Uninterrupted();

 private:
  WaitingSignals signals_;
};

}  // namespace kt::tools

#endif
