// Rebuilding the groups of a status: in all, and how long one batch keeps everything else waiting.
#include <GmpAttrLogSm/GmpAttrLogSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>

#include "BenchQuerier.h"
#include "Budget.h"

namespace Bench {
namespace {

void rebuild(benchmark::State& state) {
  const size_t count = static_cast<size_t>(state.range(0));
  BenchQuerier bench;
  for (const IpAddr group : shuffledGroups(count)) bench.reportV2(group);
  double longest = 0.0;
  for (auto _ : state) {
    bench.stop();
    double all = 0.0;
    const auto batch = [&](auto work) {
      const double begin = threadSeconds();
      work();
      const double took = threadSeconds() - begin;
      all += took;
      longest = std::max(longest, took);
    };
    batch([&] { bench.start(); });
    while (!bench.querier().initGroupStatusBookmark().isZero()) {
      batch([&] { bench.wheel().turn(Mox::now()); });
    }
    state.SetIterationTime(all);
    if (bench.querier().groupSm().size() != count) state.SkipWithError("groups are missing");
  }
  state.counters["longest_batch_ms"] = longest * 1e3;
  budget(state, 3000.0, count);  // 0.3 s for 100,000
}
BENCHMARK(rebuild)->Name("bootstrap/group")->Apply(sizes<1000, 100000>)->UseManualTime();

// Never congested, and never asks the kernel: the cost of the check between two polls.
struct FlowingSocket final : Gmp::Igmp::GmpAttrLogSm::OutSm {
  int sockFd() const override { return 0; }
  int connectionFd() const override { return -1; }
};

void clogged(benchmark::State& state) {
  const auto monitor = Gmp::Igmp::gmpAttrLogSmFactory(Mox::makePtr<FlowingSocket>());
  for (auto _ : state) benchmark::DoNotOptimize(monitor->isAttrLogClogged());
  budget(state, 3.0);
}
BENCHMARK(clogged)->Name("isAttrLogClogged/betweenChecks");

}  // namespace
}  // namespace Bench
