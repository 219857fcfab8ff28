#include "tools/settings_lock.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "base/paths.h"
#include "tools/ktctl.h"

namespace kt::tools {
namespace {

constexpr int kWaitingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

}  // namespace

bool SettingsLock::wait() {
  if (lock_.open(paths::kSettingsLock, paths::kSettingsLockMode) && lock_.lock_over_signals())
    return true;
  (void)fail(kSystemError, "%s: %s", paths::kSettingsLock, strerror(errno));
  return false;
}

void SettingsLock::try_for_a_moment() {
  if (!lock_.open(paths::kSettingsLock, paths::kSettingsLockMode)) return;
  for (int tries = 0; tries < 10 && !lock_.lock_at_once(); ++tries) (void)::usleep(10000);
}

bool wait_until_unlocked() {
  SettingsLock lock;
  return lock.wait();
}

Uninterrupted::Uninterrupted() {
  sigset_t waiting;
  (void)sigemptyset(&waiting);
  for (const int number : kWaitingSignals) (void)sigaddset(&waiting, number);
  (void)sigprocmask(SIG_BLOCK, &waiting, &before_);
  (void)signal(SIGPIPE, SIG_IGN);
}

Uninterrupted::~Uninterrupted() {
  (void)sigprocmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace kt::tools
