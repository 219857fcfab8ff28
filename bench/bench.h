// bench.h - the library against the bare minimum, in pairs.
//
// Absolute times say little on a machine that others use too. Every benchmark
// therefore times two callables in turn, in short batches: what the library offers, and
// the same work written out by hand with as few calls as it can be done with. Its result is
// the median of the ratios of neighbouring batches.
#ifndef KTCOMM_BENCH_BENCH_H
#define KTCOMM_BENCH_BENCH_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace kt::bench {

// User and system time, so that what else runs on the machine does not count: of this
// process alone, to the nanosecond, or to the microsecond with its finished children.
enum class Clock { kOwn, kWithChildren };

// What is to be reached.
struct Aim {
  enum Kind {
    kRatio,   // library / minimum is at most this
    kTime,    // the library takes at most so many nanoseconds
    kBeside,  // the library takes at most so many nanoseconds more than the minimum
    kCount,   // not a time: the library does something at most so often
  } kind;
  double most;
};

struct Plan {
  Aim aim;
  int rounds = 101;
  long batch = 0;  // calls timed at once; 0: as many as take half a millisecond
  Clock clock = Clock::kOwn;
};

// Nanoseconds since some moment.
[[nodiscard]] double now(Clock clock);

[[nodiscard]] double median(std::vector<double> values);

// Nanoseconds for one of `count` calls.
double time_of(Clock clock, long count, auto& call) {
  const double start = now(clock);
  for (long i = 0; i < count; ++i) call();
  return (now(clock) - start) / static_cast<double>(count);
}

long batch_for(Clock clock, auto& call, auto& prepare) {
  constexpr double kEnough = 5e5;
  for (long count = 1;; count *= 2) {
    prepare();
    if (time_of(clock, count, call) * static_cast<double>(count) >= kEnough) return count;
  }
}

// Hands the medians to the table.
void report(benchmark::State& state, const Aim& aim, double library, double minimum, double ratio);

// Runs the rounds; `prepare` is called before each batch and not timed.
void compare(benchmark::State& state, Plan plan, auto& library, auto& minimum, auto& prepare) {
  if (plan.batch == 0) plan.batch = batch_for(plan.clock, library, prepare);
  std::vector<double> times[2], ratios;
  bool minimum_first = false;
  for (auto _ : state) {
    double time[2];
    // By turns, so that neither always runs in the wake of the other.
    for (const bool is_minimum : {minimum_first, !minimum_first}) {
      prepare();
      time[is_minimum] = is_minimum ? time_of(plan.clock, plan.batch, minimum)
                                    : time_of(plan.clock, plan.batch, library);
      times[is_minimum].push_back(time[is_minimum]);
    }
    ratios.push_back(time[0] / time[1]);
    minimum_first = !minimum_first;
  }
  report(state, plan.aim, median(times[0]), median(times[1]), median(ratios));
}

// Adds one row to the table.
void add(const char* name, const Plan& plan, auto library, auto minimum, auto prepare) {
  const auto run = [=](benchmark::State& state) mutable {
    compare(state, plan, library, minimum, prepare);
  };
  benchmark::RegisterBenchmark(name, run)->Iterations(plan.rounds);
}

void add(const char* name, const Plan& plan, auto library, auto minimum) {
  add(name, plan, library, minimum, [] {});
}

// Adds a row that says how often `library` does something, by the count it returns.
void add_count(const char* name, double most, auto library) {
  const auto run = [=](benchmark::State& state) mutable {
    double count = 0;
    for (auto _ : state) count = library();
    report(state, {Aim::kCount, most}, count, most, count / most);
  };
  benchmark::RegisterBenchmark(name, run)->Iterations(1);
}

// Each family's own: adds its rows, once what they work on is in place.
void add_all();

// Ends the program with a message when something a benchmark relies on is not so.
void require(bool condition, const char* what);

}  // namespace kt::bench

#endif
