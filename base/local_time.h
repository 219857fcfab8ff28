// local_time.h - a time in the camera's time zone.
#ifndef KTCOMM_BASE_LOCAL_TIME_H
#define KTCOMM_BASE_LOCAL_TIME_H

#include <time.h>

namespace kt {

// False when the local time cannot be told.
[[nodiscard]] inline bool to_local_time(time_t time, struct tm& result) {
  ::tzset();  // localtime_r alone may go by the zone that there was at the first call
  return ::localtime_r(&time, &result) != nullptr;
}

// All zeros, which is a Sunday at 00:00, when the local time cannot be told.
[[nodiscard]] inline struct tm local_time(time_t time) {
  struct tm result = {};
  if (!to_local_time(time, result)) result = {};
  return result;
}

}  // namespace kt

#endif
