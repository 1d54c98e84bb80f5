// The cost of the intake alone: what it adds to each packet and each record before the querier sees
// them. The budgets hold while the limits are far. A record that a flood has it refuse may cost as
// much as one that the querier would take.
#include <Intake/Intake.h>

#include "BenchQuerier.h"
#include "Budget.h"

namespace Bench {
namespace {

using Agent::Intake;
using Ilvo::V3Record;
using Bytes = std::vector<Ilvo::U8>;

class BenchIntake final : private Agent::IntakeWatcher {
 public:
  explicit BenchIntake(size_t groups) {
    for (const IpAddr group : shuffledGroups(groups)) bench_.reportV2(group);
    intake_.querierIs(Ptr<const Gmp::Igmp::QuerierSm>(&bench_.querier()));
    intake_.linkIs(mac_, Agent::PrefixList("10.0.0.1/24"));
  }

  bool passes(const Bytes& packet) { return !judge(packet).isRefused; }
  bool passesUnchanged(const Bytes& packet) { return !judge(packet).rule.has_value(); }
  Agent::IntakeConfig& config() { return *config_; }
  BenchQuerier& bench() { return bench_; }

 private:
  Agent::IntakeVerdict judge(const Bytes& packet) {
    return intake_.judge({.packet = packet, .macs = macs_});
  }
  void onIntakeEvent(const Agent::IntakeEvent&) override {}

  const std::array<Ilvo::U8, 6> mac_{2, 0, 0, 0, 0, 1};
  const std::array<Ilvo::U8, 12> macs_{1, 0, 0x5e, 1, 1, 1, 2, 0, 0, 0, 0, 9};
  BenchQuerier bench_{Gmp::Igmp::igmpVersion3};
  Agent::IntakeProcess process_;
  const Ptr<Agent::IntakeConfig> config_ = Mox::makePtr<Agent::IntakeConfig>("bench");
  Intake intake_{process_, config_, Mox::makePtr<Agent::IntakeStatus>("bench"),
                 Ptr<Gmp::Igmp::QuerierStatus>(&bench_.status()), *this};
};

// Reports of so many records each that together name all the groups.
std::vector<Bytes> reportsOf(const std::vector<IpAddr>& groups, size_t recordsPerReport,
                             Ilvo::U8 type = 2) {
  std::vector<Bytes> packets;
  std::vector<V3Record> records;
  for (const IpAddr group : groups) {
    records.push_back({.type = type, .group = group});
    if (records.size() < recordsPerReport) continue;
    packets.push_back(Ilvo::buildV3Report(records, {.src = IpAddr(10, 0, 0, 9)}));
    records.clear();
  }
  return packets;
}

void packet(benchmark::State& state) {
  const size_t count = static_cast<size_t>(state.range(0));
  BenchIntake intake(count);
  std::vector<Bytes> packets;
  for (const IpAddr group : shuffledGroups(count, 2)) {
    packets.push_back(Ilvo::buildV2Report(group, {.src = IpAddr(10, 0, 0, 9)}));
  }
  bool pass = true;
  for (auto _ : state) {
    for (const Bytes& report : packets) pass = intake.passesUnchanged(report) && pass;
  }
  if (!pass) state.SkipWithError("a packet was refused or changed");
  budget(state, 30.0, count);
}
BENCHMARK(packet)->Name("Intake/v2Report")->Apply(sizes<1000, 50000>);

// The budget of a record includes its share of the packet's.
void record(benchmark::State& state) {
  const size_t perReport = static_cast<size_t>(state.range(0));
  const size_t count = 50 * perReport;
  BenchIntake intake(count);
  const std::vector<Bytes> packets = reportsOf(shuffledGroups(count, 2), perReport);
  bool pass = true;
  for (auto _ : state) {
    for (const Bytes& report : packets) pass = intake.passesUnchanged(report) && pass;
  }
  if (!pass) state.SkipWithError("a packet was refused or changed");
  budget(state, 5.0 + 30.0 / static_cast<double>(perReport), count);
}
BENCHMARK(record)->Name("Intake/v3Report/record")->Apply(sizes<16, 60, 183, 1100>);

// New groups while there is no room: each record is looked up, and refused.
void refusedGroup(benchmark::State& state) {
  constexpr size_t perReport = 183;
  const size_t groups = static_cast<size_t>(state.range(0));
  BenchIntake intake(groups);
  intake.config().maxGroupsIs(static_cast<Ilvo::U32>(groups));
  std::vector<IpAddr> others;
  for (size_t i = 0; i < 50 * perReport; ++i) {
    others.emplace_back(static_cast<Ilvo::U32>(0xe1000000u + i * 7));
  }
  const std::vector<Bytes> packets = reportsOf(others, perReport);
  bool pass = false;
  for (auto _ : state) {
    for (const Bytes& report : packets) pass = intake.passes(report) || pass;
  }
  if (pass) state.SkipWithError("a new group passed");
  budget(state, 100.0, others.size());
}
BENCHMARK(refusedGroup)->Name("Intake/v3Report/refusedGroup")->Apply(sizes<1000, 65536>);

}  // namespace
}  // namespace Bench
