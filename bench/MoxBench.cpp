// The cost of common operations of a handler: a setter, a trace, reading the clock.
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/ActivityClock.h>
#include <Mox/GenericAccess.h>
#include <Mox/Trace.h>

#include "Budget.h"

namespace Bench {
namespace {

using Gmp::Igmp::IpAddr;
using Gmp::Igmp::QuerierGroupStatus;

struct Watcher final : QuerierGroupStatus::NotifieeConst {
  using NotifieeConst::NotifieeConst;
  void onExpiryTime() override { ++notified; }
  size_t notified = 0;
};

void setter(benchmark::State& state) {
  const auto status = Mox::makePtr<QuerierGroupStatus>(IpAddr(239, 1, 1, 1));
  double time = 1.0;
  for (auto _ : state) {
    status->expiryTimeIs(time);
    time += 1.0;
    benchmark::DoNotOptimize(status);
  }
  budget(state, 3.0);
}
BENCHMARK(setter)->Name("setter/noNotifiee");

// Its operation does nothing, so that only the call itself is measured.
class Doorbell final : public Mox::ObjectOf<Doorbell> {
 public:
  static constexpr const char* entityTypeName = "Bench::Doorbell";
  [[gnu::noinline]] void ring(const Mox::Ptr<Doorbell>& by) { benchmark::DoNotOptimize(by.get()); }
  static constexpr Mox::AttrTable attributes{Mox::Operation{"ring", &Doorbell::ring}};
};

void directCall(benchmark::State& state) {
  const auto bell = Mox::makePtr<Doorbell>();
  for (auto _ : state) bell->ring(bell);
  budget(state, 3.0);
}
BENCHMARK(directCall)->Name("call/direct");

// Generic access may add 2 % of the cost of a packet, which is at least 90 ns.
void callByName(benchmark::State& state) {
  const auto bell = Mox::makePtr<Doorbell>();
  const Mox::Call<Mox::Ptr<Doorbell>> ring(bell->type(), "ring");
  for (auto _ : state) ring(*bell, bell);
  budget(state, 3.0 + 1.8);
}
BENCHMARK(callByName)->Name("call/byName");

void watchedSetter(benchmark::State& state) {
  const auto status = Mox::makePtr<QuerierGroupStatus>(IpAddr(239, 1, 1, 1));
  Watcher watcher(status);
  double time = 1.0;
  for (auto _ : state) {
    status->expiryTimeIs(time);
    time += 1.0;
    benchmark::DoNotOptimize(status);
  }
  if (watcher.notified == 0) state.SkipWithError("nothing was notified");
  budget(state, 15.0);
}
BENCHMARK(watchedSetter)->Name("setter/oneNotifiee");

void traceBelow(benchmark::State& state) {
  Mox::TraceHandle& handle = Mox::TraceHandle::named("Bench");
  const IpAddr group(239, 1, 1, 1);
  for (auto _ : state) {
    Mox::trace<8>(handle, "Found groupSm for group ", group);
    benchmark::ClobberMemory();
  }
  budget(state, 2.0);
}
BENCHMARK(traceBelow)->Name("trace/belowTheLevelInForce");

void traceKept(benchmark::State& state) {
  Mox::TraceHandle& handle = Mox::TraceHandle::named("Bench");
  const IpAddr group(239, 1, 1, 1);
  const Mox::Name vlan("vlan10");
  double time = 1.0;
  for (auto _ : state) {
    Mox::trace<3>(handle, "Membership for ", group, " on ", vlan, " expired", time);
    time += 1.0;
  }
  budget(state, 20.0);
}
BENCHMARK(traceKept)->Name("trace/keptInTheRing");

}  // namespace
}  // namespace Bench
