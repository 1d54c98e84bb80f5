// A search for the packet that costs most, whatever is in it: none may take longer than 1 ms. The
// querier has 1,000 groups of 1,000 sources, and packets pass the intake as with an agent, with the
// limits of its defaults and no reader of its state.
//
// Each benchmark is a kind of packet at a length up to jumbo frames; the whole costs what the
// intake, the querier and the timers that are due at once take. `scripts/bench` shows the worst.
#include <Intake/Intake.h>

#include <random>
#include <set>
#include <string>

#include "BenchQuerier.h"
#include "Budget.h"

namespace Bench {
namespace {

using Bytes = std::vector<Ilvo::U8>;
using Ilvo::U32;
using Ilvo::U8;
using Ilvo::V3Record;

constexpr size_t sourcesOfGroup = 1000;
constexpr double mostNanoseconds = 1e6;

size_t mostGroups() { return tiny() ? 10 : 1000; }

IpAddr groupAt(size_t n) { return IpAddr(0xe8000100u + static_cast<U32>(n)); }
IpAddr sourceAt(size_t n) { return IpAddr(0x0a000001u + static_cast<U32>(n)); }

class LoadedQuerier final : private Agent::IntakeWatcher {
 public:
  LoadedQuerier() {
    intake_.querierIs(Ptr<const Gmp::Igmp::QuerierSm>(&bench_.querier()));
    intake_.linkIs(std::array<U8, 6>{2, 0, 0, 0, 0, 1}, Agent::PrefixList("10.0.0.1/8"));
    config_->maxSourcesIs(16777216);
    process_.config->maxProcessSourcesIs(16777216);
    config_->maxQueryRateIs(1000000);  // beyond the rate, a packet costs less
    config_->maxQueryBurstIs(1000000);
    bench_.status().stateIs(Gmp::Igmp::QuerierStatus::querierStateQuerier);
    for (size_t n = 0; n < mostGroups(); ++n) load(groupAt(n));
  }

  // EXCLUDE with half of the sources wanted: each kind of record has most to do there.
  void load(IpAddr group) {
    for (const U8 type : {U8{2}, U8{5}}) {
      for (size_t first = 0; first < sourcesOfGroup; first += sourcesOfGroup / 4) {
        if (type == 5 && first >= sourcesOfGroup / 2) break;
        V3Record record{.type = first == 0 || type == 5 ? type : U8{5}, .group = group};
        for (size_t n = 0; n < sourcesOfGroup / 4; ++n) {
          record.sources.push_back(sourceAt(first + n));
        }
        receive(Ilvo::buildV3Report({record}, {.src = IpAddr(10, 0, 0, 9)}));
      }
    }
  }
  void receive(const Bytes& packet) {
    const Agent::IntakeVerdict verdict = intake_.judge({.packet = packet});
    if (verdict.isRefused) return;
    bench_.receive(Mox::makePtr<Ilvo::Pkt>(verdict.packet));
    bench_.wheel().turn(Mox::now());
  }
  // As it was before a packet that named the group.
  void restore(IpAddr group) {
    bench_.querier().groupSmDel(group);
    if (group.value() < groupAt(mostGroups()).value()) load(group);
  }
  size_t sources() { return bench_.status().sources(); }

 private:
  void onIntakeEvent(const Agent::IntakeEvent&) override {}

  BenchQuerier bench_{Gmp::Igmp::igmpVersion3};
  Agent::IntakeProcess process_;
  const Ptr<Agent::IntakeConfig> config_ = Mox::makePtr<Agent::IntakeConfig>("bench");
  Agent::Intake intake_{process_, config_, Mox::makePtr<Agent::IntakeStatus>("bench"),
                        Ptr<Gmp::Igmp::QuerierStatus>(&bench_.status()), *this};
};

// As many records as fit into a message of so many bytes.
struct Shape {
  const char* name;
  size_t sources;  // of each record
  bool oneGroup;   // of all records, or another one of each
  bool knownGroups;
};
constexpr std::array shapes{
    Shape{"oneGroup", 0, true, true},
    Shape{"groups", 0, false, true},
    Shape{"newGroups", 0, false, false},
    Shape{"oneGroupFewSources", 4, true, true},
    Shape{"groupsFewSources", 4, false, true},
    Shape{"newGroupsFewSources", 4, false, false},
    Shape{"oneGroupAllSources", 360, true, true},
    Shape{"groupsManySources", 360, false, true},
    Shape{"oneRecord", 2200, true, true},
    Shape{"oneNewGroup", 2200, true, false},
};

std::vector<V3Record> recordsOf(const Shape& shape, U8 type, size_t bytes, std::mt19937& random) {
  std::vector<V3Record> records;
  size_t left = bytes - 36;  // of headers
  const size_t first = random() % mostGroups();
  while (left >= 8) {
    const size_t sources = std::min(shape.sources, (left - 8) / 4);
    const size_t number = shape.oneGroup ? first : (first + records.size()) % mostGroups();
    V3Record record{
        .type = type == 0 ? static_cast<U8>(1 + records.size() % 6) : type,
        .group = groupAt(number + (shape.knownGroups ? 0 : 100000 + random() % 100000))};
    const size_t begin = random() % sourcesOfGroup;
    for (size_t n = 0; n < sources; ++n) record.sources.push_back(sourceAt(begin + n));
    left -= 8 + 4 * sources;
    records.push_back(std::move(record));
  }
  return records;
}

// The same querier for all: what a packet changes is changed back.
LoadedQuerier& loaded() {
  static LoadedQuerier querier;
  return querier;
}

void worst(benchmark::State& state, const Shape& shape, U8 type) {
  const auto bytes = static_cast<size_t>(state.range(0));
  LoadedQuerier& querier = loaded();
  std::mt19937 random(7);
  double most = 0.0;
  for (auto _ : state) {
    const std::vector<V3Record> records = recordsOf(shape, type, bytes, random);
    const Bytes packet = Ilvo::buildV3Report(records, {.src = IpAddr(10, 0, 0, 9)});
    const double begin = threadSeconds();
    querier.receive(packet);
    const double seconds = threadSeconds() - begin;
    most = std::max(most, seconds);
    state.SetIterationTime(seconds);
    std::set<IpAddr> named;
    for (const V3Record& record : records) named.insert(record.group);
    for (const IpAddr group : named) querier.restore(group);
  }
  state.counters["most_us"] = most * 1e6;
  if (querier.sources() != mostGroups() * sourcesOfGroup) {
    state.SkipWithError("the querier has lost its sources");
  }
  budget(state, mostNanoseconds);
}

const bool registered = [] {
  const char* const types[] = {"mixed", "isIn", "isEx", "toIn", "toEx", "allow", "block"};
  for (const Shape& shape : shapes) {
    for (size_t type = 0; type < std::size(types); ++type) {
      const std::string name = std::string("WorstPacket/") + shape.name + "/" + types[type];
      benchmark::RegisterBenchmark(
          name.c_str(),
          [&shape, type](benchmark::State& state) { worst(state, shape, static_cast<U8>(type)); })
          ->Apply(sizes<1500, 9000>)
          ->UseManualTime()
          ->Iterations(tiny() ? 2 : 5);
    }
  }
  return true;
}();

}  // namespace
}  // namespace Bench
