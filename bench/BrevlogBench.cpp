#include <Brevlog/Ring.h>

#include "Budget.h"

namespace Bench {
namespace {

// The arguments of a state machine's trace, into a ring that is full, as it is after a second.
void recordFiveArguments(benchmark::State& state) {
  Brevlog::Ring ring(size_t{1} << state.range(0));
  constexpr size_t batch = 1000;
  Mox::Seconds now = 1000.0;
  Mox::U32 group = 0xe1000001;
  const auto record = [&] {
    ring.record(8, "QuerierGroupSm", now, "::", "handleRxReport", "(", group, ")");
  };
  while (ring.overwritten() == 0) record();
  for (auto _ : state) {
    for (size_t i = 0; i < batch; ++i) {
      record();
      now += 0.001;
      ++group;
    }
    benchmark::ClobberMemory();
  }
  if (ring.overwritten() == 0) state.SkipWithError("the ring was not full");
  budget(state, 20.0, batch);
}
BENCHMARK(recordFiveArguments)
    ->Name("Brevlog/recordFiveArguments/log2Bytes")
    ->Apply(sizes<16, 20, 24>);

}  // namespace
}  // namespace Bench
