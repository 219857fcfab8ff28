// local_now.h - this moment in the camera's time zone.
#ifndef KTCOMM_SCHED_LOCAL_NOW_H
#define KTCOMM_SCHED_LOCAL_NOW_H

#include <time.h>

namespace kt {

// Sunday 00:00 when the local time cannot be told.
[[nodiscard]] inline struct tm local_now() {
  const time_t now = ::time(nullptr);
  struct tm result = {};
  if (::localtime_r(&now, &result) == nullptr) result = {};
  return result;
}

// 0 to 1439.
[[nodiscard]] inline unsigned minute_of_day(const struct tm& time) {
  return static_cast<unsigned>(time.tm_hour * 60 + time.tm_min);
}

}  // namespace kt

#endif
