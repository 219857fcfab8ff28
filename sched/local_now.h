// local_now.h - this moment in the camera's time zone.
#ifndef KTCOMM_SCHED_LOCAL_NOW_H
#define KTCOMM_SCHED_LOCAL_NOW_H

#include <time.h>

#include "base/local_time.h"

namespace kt {

[[nodiscard]] inline struct tm local_now() {
  return local_time(::time(nullptr));
}

// 0 to 1439.
[[nodiscard]] inline unsigned minute_of_day(const struct tm& time) {
  return static_cast<unsigned>(time.tm_hour * 60 + time.tm_min);
}

}  // namespace kt

#endif
