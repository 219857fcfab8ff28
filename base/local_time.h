// local_time.h - a time in the camera's time zone.
#ifndef KTCOMM_BASE_LOCAL_TIME_H
#define KTCOMM_BASE_LOCAL_TIME_H

#include <stdlib.h>
#include <time.h>

#include <atomic>

namespace kt {

// localtime_r alone may go by the zone that there was at the first call. Asking for
// one that TZ does not name takes longer than all the rest, so that is done once a
// second at most.
inline void refresh_time_zone() {
  static constinit std::atomic<unsigned> refreshed_at = 0;
  const bool is_named = ::getenv("TZ") != nullptr;
  const auto now = is_named ? 0 : static_cast<unsigned>(::time(nullptr));
  if (refreshed_at.exchange(now, std::memory_order_relaxed) != now || is_named) ::tzset();
}

// False when the local time cannot be told.
[[nodiscard]] inline bool to_local_time(time_t time, struct tm& result) {
  refresh_time_zone();
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
