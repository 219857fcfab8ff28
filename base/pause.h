// pause.h - sleep a whole while.
#ifndef KTCOMM_BASE_PAUSE_H
#define KTCOMM_BASE_PAUSE_H

#include <time.h>

#include "base/io.h"

namespace kt {

// Sleeps the whole time, over any number of signals.
inline void pause_ms(unsigned ms) {
  struct timespec left = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1'000'000};
  (void)retry_eintr([&] { return ::nanosleep(&left, &left); });
}

}  // namespace kt

#endif
