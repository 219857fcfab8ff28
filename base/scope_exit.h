// scope_exit.h - run something when a scope ends; keep errno over a scope.
#ifndef KTCOMM_BASE_SCOPE_EXIT_H
#define KTCOMM_BASE_SCOPE_EXIT_H

#include <errno.h>

namespace kt {

template <typename F>
class ScopeExit {
 public:
  explicit ScopeExit(F action) : action_(action) {}
  ~ScopeExit() { action_(); }
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;

 private:
  F action_;
};

class ErrnoKeeper {
 public:
  ErrnoKeeper() : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int saved_;
};

}  // namespace kt

#endif
