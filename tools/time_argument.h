// time_argument.h - points in time as people write them on the command line.
#ifndef KTCOMM_TOOLS_TIME_ARGUMENT_H
#define KTCOMM_TOOLS_TIME_ARGUMENT_H

#include <optional>

namespace kt::tools {

// Seconds since 1970: a number of them, an age such as "90s", "30m", "2h" or "1d"
// before `now`, or "YYYY-MM-DD", "YYYY-MM-DD HH:MM" or "YYYY-MM-DD HH:MM:SS" in
// local time, with a blank or a T between. Nothing for other texts, and for a
// time that this machine cannot count to.
[[nodiscard]] std::optional<long> parse_time(const char* text, long now);

}  // namespace kt::tools

#endif
