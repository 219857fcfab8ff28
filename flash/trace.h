// trace.h - the trace lines of the flash code, with the caller's function and
// line once or twice, as their formats ask.
#ifndef KTCOMM_FLASH_TRACE_H
#define KTCOMM_FLASH_TRACE_H

#include <ktcomm/log.h>

namespace kt {

constexpr int kTraceFailure = 4;
constexpr int kTraceProgress = 8;
constexpr int kTraceModule = 8;

}  // namespace kt

#define KT_TRACE_ONCE(level, format, ...)                                       \
  ((void)KT_DEBUGn_in(kt::kTrace##level, kt::kTraceModule, 0, format, __func__, \
                      __LINE__ __VA_OPT__(, ) __VA_ARGS__))
// Twice, under the name of a step that the calling helper is a piece of.
#define KT_TRACE_TWICE_OF(step, level, format, ...)                                         \
  ((void)KT_DEBUGn_in(kt::kTrace##level, kt::kTraceModule, 0, format, step, __LINE__, step, \
                      __LINE__ __VA_OPT__(, ) __VA_ARGS__))
#define KT_TRACE_TWICE(level, format, ...) \
  KT_TRACE_ONCE(level, format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#endif
