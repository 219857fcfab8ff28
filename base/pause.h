// pause.h - sleep a whole while.
#ifndef KTCOMM_BASE_PAUSE_H
#define KTCOMM_BASE_PAUSE_H

#include <time.h>
#include <unistd.h>

#include "base/io.h"

namespace kt {

// Sleeps the whole time, over any number of signals.
inline void pause_ms(unsigned ms) {
  struct timespec left = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1'000'000};
  (void)retry_eintr([&] { return ::nanosleep(&left, &left); });
}

inline void pause_s(unsigned seconds) {
  while (seconds != 0) seconds = ::sleep(seconds);
}

}  // namespace kt

#endif
