// The memory of one group and of one source, containers and allocator included.
#include <GmpIgmpQuerierSm/QuerierSm.h>

#include "BenchQuerier.h"
#include "Budget.h"
#include "HeapBytes.h"

namespace Bench {
namespace {

void bytesPerItem(benchmark::State& state, double bytes, double allowed) {
  state.counters["bytes_per_item"] = bytes;
  state.counters["budget_bytes"] = allowed;
}

void groupMemory(benchmark::State& state) {
  const size_t count = static_cast<size_t>(state.range(0));
  const std::vector<IpAddr> groups = shuffledGroups(count);
  double bytes = 0;
  for (auto _ : state) {
    BenchQuerier bench;
    const size_t before = heapBytes();
    for (const IpAddr group : groups) bench.reportV2(group);
    bytes = static_cast<double>(heapBytes() - before) / static_cast<double>(count);
  }
  bytesPerItem(state, bytes, 512.0);
}
BENCHMARK(groupMemory)->Name("memory/group")->Apply(sizes<1000, 100000, 1000000>)->Iterations(1);

void sourceMemory(benchmark::State& state) {
  const size_t perGroup = static_cast<size_t>(state.range(0));
  const size_t groups = 20000 / perGroup;
  double bytes = 0;
  for (auto _ : state) {
    BenchQuerier bench(Gmp::Igmp::igmpVersion3);
    const auto& wheel = bench.querier().queryIntervalTimer();
    std::vector<Ptr<Gmp::Igmp::QuerierGroupSm>> machines;
    for (const IpAddr group : shuffledGroups(groups)) {
      machines.push_back(bench.querier().groupSmIs(group, wheel, wheel, wheel, wheel));
    }
    const size_t before = heapBytes();
    for (const auto& machine : machines) {
      for (uint32_t s = 0; s < perGroup; ++s) {
        Gmp::Igmp::getOrCreateSourceSm(machine, IpAddr(0x0a000001 + s))->doSetTimer(260.0);
      }
    }
    bytes = static_cast<double>(heapBytes() - before) / static_cast<double>(groups * perGroup);
  }
  bytesPerItem(state, bytes, 288.0);
}
BENCHMARK(sourceMemory)->Name("memory/source")->Apply(sizes<1, 10, 1000, 20000>)->Iterations(1);

}  // namespace
}  // namespace Bench
