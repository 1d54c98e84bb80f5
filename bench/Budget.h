// The budget of a benchmark: nanoseconds for each item, reported beside the measured time.
//
// A benchmark runs batches; the time of one item and the budget are its counters "per_item"
// (seconds, which the console shows as "5.7ns") and "budget_ns". scripts/bench makes the table. A
// batch that needs preparation is timed by hand, since pausing the library's timer takes longer
// than the measured work:
//
//   void armBench(benchmark::State& state) {
//     for (auto _ : state) {
//       prepare();
//       timed(state, [&] { armAll(); });
//     }
//     budget(state, 30.0, timers.size());
//   }
//   BENCHMARK(armBench)->Name("TimerWheel/arm")->Apply(sizes<1000, 1000000>)->UseManualTime();
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <benchmark/benchmark.h>

namespace Bench {

// Call it after the loop. `items` is how many one iteration handled.
inline void budget(benchmark::State& state, double nanoseconds, size_t items = 1) {
  using benchmark::Counter;
  state.counters["budget_ns"] = Counter(nanoseconds);
  state.counters["per_item"] =
      Counter(static_cast<double>(items), Counter::kIsIterationInvariantRate | Counter::kInvert);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(items));
}

// The processor time of this thread in seconds: other work on the machine does not count.
inline double threadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Runs and times one batch, of a benchmark registered with UseManualTime().
template <class Work>
void timed(benchmark::State& state, Work work) {
  const double begin = threadSeconds();
  work();
  state.SetIterationTime(threadSeconds() - begin);
}

// Whether this is the run in ctest, which only shows that the benchmark still works.
inline bool tiny() { return std::getenv("QUERIER_BENCH_TINY") != nullptr; }

// The sizes a benchmark is run with; the smallest only when tiny.
template <int64_t first, int64_t... more>
void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(first);
  if (tiny()) return;
  (benchmark->Arg(more), ...);
}

}  // namespace Bench
