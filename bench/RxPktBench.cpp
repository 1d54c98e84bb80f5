// The cost of a received version 2 report: refresh of a known group, and a new group.
#include <GmpIgmpQuerierSm/QuerierSm.h>

#include "BenchQuerier.h"
#include "Budget.h"

namespace Bench {
namespace {

void refresh(benchmark::State& state) {
  const size_t count = static_cast<size_t>(state.range(0));
  BenchQuerier bench;
  for (const IpAddr group : shuffledGroups(count)) bench.reportV2(group);
  const std::vector<IpAddr> order = shuffledGroups(count, 2);
  for (auto _ : state) {
    for (const IpAddr group : order) bench.reportV2(group);
  }
  if (bench.status().group().size() != count) state.SkipWithError("not all groups are there");
  budget(state, count > 1000 ? 450.0 : 150.0, count);
}
BENCHMARK(refresh)->Name("doRxPkt/v2Report/knownGroup")->Apply(sizes<1000, 1000000>);

// The same through generic access, as the agent hands packets in.
void refreshByName(benchmark::State& state) {
  const size_t count = static_cast<size_t>(state.range(0));
  BenchQuerier bench;
  for (const IpAddr group : shuffledGroups(count)) bench.reportV2(group);
  const std::vector<IpAddr> order = shuffledGroups(count, 2);
  const Mox::Call<Ptr<Ilvo::Pkt>> doRxPkt(bench.querier().type(), "doRxPkt");
  for (auto _ : state) {
    for (const IpAddr group : order) bench.reportV2(group, doRxPkt);
  }
  if (bench.status().group().size() != count) state.SkipWithError("not all groups are there");
  budget(state, 150.0, count);
}
BENCHMARK(refreshByName)->Name("doRxPkt/v2Report/knownGroup/byName")->Apply(sizes<1000>);

// The same for a host that reads packets in batches and prefetches each before it is handed in.
void refreshExpected(benchmark::State& state) {
  const size_t count = static_cast<size_t>(state.range(0));
  BenchQuerier bench;
  bench.reportsV2(shuffledGroups(count));
  const std::vector<IpAddr> order = shuffledGroups(count, 2);
  for (auto _ : state) bench.reportsV2(order);
  if (bench.status().group().size() != count) state.SkipWithError("not all groups are there");
  budget(state, count > 1000 ? 450.0 : 150.0, count);
}
BENCHMARK(refreshExpected)
    ->Name("doRxPkt/v2Report/knownGroup/inBatches")
    ->Apply(sizes<1000, 1000000>);

// Averaged over the growth from none to that many.
void join(benchmark::State& state) {
  const size_t count = static_cast<size_t>(state.range(0));
  const std::vector<IpAddr> groups = shuffledGroups(count);
  for (auto _ : state) {
    BenchQuerier bench;
    timed(state, [&] {
      for (const IpAddr group : groups) bench.reportV2(group);
    });
    if (bench.status().group().size() != count) state.SkipWithError("not all groups are there");
  }
  budget(state, 1000.0, count);
}
BENCHMARK(join)->Name("doRxPkt/v2Report/newGroup")->Apply(sizes<1000, 1000000>)->UseManualTime();

// A packet that no querier uses: dropped after the checks, within the time of a report.
void badChecksum(benchmark::State& state) {
  BenchQuerier bench;
  const Ptr<Ilvo::Pkt> pkt =
      Mox::makePtr<Ilvo::Pkt>(Ilvo::buildV2Report(IpAddr(239, 1, 1, 1), {.badIgmpChecksum = true}));
  for (auto _ : state) bench.receive(pkt);
  if (bench.status().errorPacketReceived() == 0) state.SkipWithError("nothing was counted");
  budget(state, 150.0);
}
BENCHMARK(badChecksum)->Name("doRxPkt/v2Report/badChecksum");

}  // namespace
}  // namespace Bench
