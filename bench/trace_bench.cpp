// The debug trace: a line that is kept, one that is filtered out.
#include <ktcomm/log.h>

#include "bench/bench.h"
#include "bench/hand.h"

namespace kt::bench {
namespace {

constexpr int kLibraryModule = 0, kHandModule = 7;
constexpr char kFormat[] = "%s(%d)ENV: %s(%d) check config file fail\n";
constexpr int kKept = 8, kFiltered = 9;

// What the smallest filter takes: a call, a compare and a return.
[[gnu::noinline, gnu::format(printf, 4, 5)]] int filter_by_hand(int level, int module, int /*sub*/,
                                                                const char* /*format*/, ...) {
  return mod_define[module].level < level ? -1 : 0;
}

}  // namespace

void add_all() {
  add(
      "trace line, kept", {{Aim::kRatio, 1.05}, 201, 64},
      [] { KT_DEBUGn_in(kKept, kLibraryModule, 0, kFormat, "caller", 123, "caller", 123); },
      [] { trace_by_hand(kKept, kHandModule, 0, kFormat, "caller", 123, "caller", 123); },
      [] {
        empty_trace(kLibraryModule);
        empty_trace(kHandModule);
      });
  add(
      "trace line, filtered out", {{Aim::kTime, 5}},
      [] {
        benchmark::DoNotOptimize(
            KT_DEBUGn_in(kFiltered, kLibraryModule, 0, kFormat, "caller", 123, "caller", 123));
      },
      [] {
        benchmark::DoNotOptimize(
            filter_by_hand(kFiltered, kLibraryModule, 0, kFormat, "caller", 123, "caller", 123));
      });
}

}  // namespace kt::bench
