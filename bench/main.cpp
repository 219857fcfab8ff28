// Runs the benchmarks of one family and prints its rows of the table.
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include "bench/bench.h"

namespace kt::bench {
namespace {

double nanoseconds(const struct timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
}

double processor_time(int who) {
  struct rusage usage;
  require(getrusage(who, &usage) == 0, "getrusage");
  return nanoseconds(usage.ru_utime) + nanoseconds(usage.ru_stime);
}

class Text {
 public:
  Text(Aim::Kind kind, double value) {
    if (kind == Aim::kCount) {
      (void)snprintf(text_, sizeof text_, "%.0f", value);
    } else if (kind == Aim::kRatio) {
      (void)snprintf(text_, sizeof text_, "%.3f", value);
    } else if (value < 1e4) {
      (void)snprintf(text_, sizeof text_, "%.1f ns", value);
    } else if (value < 1e7) {
      (void)snprintf(text_, sizeof text_, "%.1f us", value / 1e3);
    } else {
      (void)snprintf(text_, sizeof text_, "%.1f ms", value / 1e6);
    }
  }
  [[nodiscard]] const char* c_str() const { return text_; }

 private:
  char text_[32];
};

class Table : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) print(run);
    (void)fflush(stdout);
  }

 private:
  static void print(const Run& run) {
    const auto& counters = run.counters;
    const auto kind = static_cast<Aim::Kind>(static_cast<int>(counters.at("kind")));
    const double library = counters.at("library"), minimum = counters.at("minimum"),
                 ratio = counters.at("ratio"), most = counters.at("most");
    const double reached = kind == Aim::kRatio    ? ratio
                           : kind == Aim::kBeside ? library - minimum
                                                  : library;
    const auto unit = kind == Aim::kCount ? kind : Aim::kTime;
    constexpr const char* kWords[] = {"", "", "+", ""};
    printf("%-52s %11s %11s %7.3f %s%-9s%s\n", run.run_name.function_name.c_str(),
           Text(unit, library).c_str(), Text(unit, minimum).c_str(), ratio, kWords[kind],
           Text(kind == Aim::kBeside ? Aim::kTime : kind, most).c_str(),
           reached <= most ? "" : " missed");
  }
};

// OpenSSL looks at the processor before main() runs, unless it is told what to
// find: no extension at all, as on the camera.
void mask_processor_extensions(char** arguments) {
  constexpr char kVariable[] = "OPENSSL_ia32cap";
  if (getenv(kVariable) != nullptr) return;
  require(setenv(kVariable, "0:0", 1) == 0, "setenv");
  execv("/proc/self/exe", arguments);
  require(false, "execv");
}

}  // namespace

double now(Clock clock) {
  if (clock == Clock::kWithChildren) {
    return processor_time(RUSAGE_SELF) + processor_time(RUSAGE_CHILDREN);
  }
  struct timespec time;
  require(clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time) == 0, "clock_gettime");
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double median(std::vector<double> values) {
  require(!values.empty(), "a median of nothing");
  std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

void report(benchmark::State& state, const Aim& aim, double library, double minimum, double ratio) {
  state.counters["kind"] = aim.kind;
  state.counters["most"] = aim.most;
  state.counters["library"] = library;
  state.counters["minimum"] = minimum;
  state.counters["ratio"] = ratio;
}

void require(bool condition, const char* what) {
  if (condition) return;
  (void)fprintf(stderr, "bench: %s failed\n", what);
  exit(1);
}

}  // namespace kt::bench

int main(int count, char** arguments) {
  using namespace kt::bench;
  mask_processor_extensions(arguments);
  benchmark::Initialize(&count, arguments);
  add_all();
  Table table;
  require(benchmark::RunSpecifiedBenchmarks(&table) != 0, "finding a benchmark of that name");
  return 0;
}
