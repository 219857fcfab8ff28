// local_time.h - a time in the camera's time zone.
#ifndef KTCOMM_LOG_LOCAL_TIME_H
#define KTCOMM_LOG_LOCAL_TIME_H

#include <time.h>

namespace kt {

// All zeros when the local time cannot be told: a log keeps the line anyway.
[[nodiscard]] inline struct tm local_time(time_t time) {
  struct tm result = {};
  if (::localtime_r(&time, &result) == nullptr) result = {};
  return result;
}

}  // namespace kt

#endif
