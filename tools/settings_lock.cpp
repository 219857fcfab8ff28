#include "tools/settings_lock.h"

#include <unistd.h>

#include "base/paths.h"
#include "tools/lock_timeout.h"

namespace kt::tools {
namespace {

constexpr int kWaitingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

}  // namespace

int SettingsLock::wait() {
  return take_lock(lock_, paths::kSettingsLock, paths::kSettingsLockMode);
}

void SettingsLock::try_for_a_moment() {
  if (!lock_.open(paths::kSettingsLock, paths::kSettingsLockMode)) return;
  for (int tries = 0; tries < 10 && !lock_.lock_at_once(); ++tries) (void)::usleep(10000);
}

int wait_until_unlocked() {
  SettingsLock lock;
  return lock.wait();
}

WaitingSignals::WaitingSignals() {
  sigset_t waiting;
  (void)sigemptyset(&waiting);
  for (const int number : kWaitingSignals) (void)sigaddset(&waiting, number);
  (void)sigprocmask(SIG_BLOCK, &waiting, &before_);
}

WaitingSignals::~WaitingSignals() {
  (void)sigprocmask(SIG_SETMASK, &before_, nullptr);
}

Uninterrupted::Uninterrupted() {
  (void)signal(SIGPIPE, SIG_IGN);
}

}  // namespace kt::tools
