// xml_trace.h - the trace lines of the XML functions, each under the name of an
// exported one.
#ifndef KTCOMM_NET_XML_TRACE_H
#define KTCOMM_NET_XML_TRACE_H

#include <ktcomm/log.h>

namespace kt {

constexpr int kTraceProgress = 8;
constexpr int kTraceModule = 8;

}  // namespace kt

#define KT_TRACE_XML(function, format, ...)                                      \
  ((void)KT_DEBUGn_in(kt::kTraceProgress, kt::kTraceModule, 0, format, function, \
                      __LINE__ __VA_OPT__(, ) __VA_ARGS__))

#endif
