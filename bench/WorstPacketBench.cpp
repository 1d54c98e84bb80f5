// A search for the packet that costs most, whatever is in it: none may take longer than 1 ms. The
// querier has 1,000 groups of 1,000 sources, and packets pass the intake as with an agent, with the
// limits of its defaults, a budget of events and no reader of its state.
//
// Each benchmark is a kind of packet at a length up to jumbo frames; the whole costs what the
// intake, the querier and the timers that are due at once take. A report that the intake cuts into
// parts counts as its longest part: packets are handled between them. `scripts/bench` shows the
// worst.
#include <Intake/Intake.h>

#include <memory>
#include <random>
#include <set>
#include <string>

#include <Events/EventBudget.h>
#include <Events/LibraryMessages.h>

#include "BenchQuerier.h"
#include "Budget.h"

namespace Bench {
namespace {

using Bytes = std::vector<Ilvo::U8>;
using Gmp::Igmp::QuerierStatus;
using Ilvo::U32;
using Ilvo::U8;
using Ilvo::V3Record;

constexpr double mostNanoseconds = 1e6;
constexpr IpAddr host(10, 0, 0, 9);
constexpr IpAddr otherRouter(9, 0, 0, 1);

size_t mostGroups() { return tiny() ? 10 : 1000; }
size_t sourcesOfGroup() { return tiny() ? 100 : 1000; }

IpAddr groupAt(size_t n) { return IpAddr(0xe8000100u + static_cast<U32>(n)); }
IpAddr sourceAt(size_t n) { return IpAddr(0x0a000001u + static_cast<U32>(n)); }
IpAddr invalidSourceAt(size_t n) { return IpAddr(0xe1000001u + static_cast<U32>(n)); }

// The state in which the packet finds the querier.
struct Load {
  const char* name;
  bool exclude;  // the groups' mode, with half of the sources wanted; or INCLUDE
  bool elected;
};
constexpr Load asQuerier{"", true, true};
constexpr Load includeAsQuerier{"include/", false, true};
constexpr Load asNonQuerier{"nonQuerier/", true, false};

class NoOutput final : public Agent::EventSink {
  void event(const Agent::Event&) override {}
};

class LoadedQuerier final : private Agent::IntakeWatcher {
 public:
  explicit LoadedQuerier(const Load& load) : load_(load) {
    intake_.querierIs(Ptr<const Gmp::Igmp::QuerierSm>(&bench_.querier()));
    intake_.linkIs(std::array<U8, 6>{2, 0, 0, 0, 0, 1}, Agent::PrefixList("10.0.0.1/5"));
    config_->maxSourcesIs(16777216);
    process_.config->maxProcessSourcesIs(16777216);
    config_->maxQueryBurstIs(4000000000);  // beyond it, a packet costs less
    roleIs(load.elected);
    for (size_t n = 0; n < mostGroups(); ++n) fill(groupAt(n));
  }

  const Load& load() const { return load_; }
  Gmp::Igmp::QuerierSm& querier() { return bench_.querier(); }
  size_t sources() { return bench_.status().sources(); }
  void roleIs(bool elected) {
    QuerierStatus& status = bench_.status();
    status.stateIs(elected ? QuerierStatus::querierStateQuerier
                           : QuerierStatus::querierStateNonQuerier);
    status.electedQuerierAddrIs(elected ? bench_.querier().ipAddr() : otherRouter);
  }

  // Each kind of record has most to do in a group that excludes, with half of the sources wanted.
  void fill(IpAddr group) {
    const size_t perRecord = sourcesOfGroup() / 4;
    for (size_t first = 0; first < sourcesOfGroup(); first += perRecord) {
      const U8 type = load_.exclude && first == 0 ? U8{2} : U8{5};
      report(type, group, first, perRecord);
    }
    if (!load_.exclude) return;
    for (size_t first = 0; first < sourcesOfGroup() / 2; first += perRecord) {
      report(5, group, first, perRecord);
    }
  }
  // Seconds of the longest part.
  double receive(const Bytes& packet) {
    double longest = 0.0;
    for (Bytes left = packet; !left.empty();) {
      const double begin = threadSeconds();
      const Agent::IntakeVerdict verdict = intake_.judge({.packet = left});
      if (!verdict.isRefused) {
        bench_.receive(Mox::makePtr<Ilvo::Pkt>(verdict.packet));
        bench_.wheel().turn(Mox::now());
      }
      longest = std::max(longest, threadSeconds() - begin);
      left = Bytes(verdict.rest.begin(), verdict.rest.end());
    }
    return longest;
  }
  // As it was before a packet that named the group.
  void restore(IpAddr group) {
    bench_.querier().groupSmDel(group);
    if (group.value() < groupAt(mostGroups()).value()) fill(group);
  }

 private:
  void onIntakeEvent(const Agent::IntakeEvent&) override {}
  void report(U8 type, IpAddr group, size_t first, size_t sources) {
    V3Record record{.type = type, .group = group};
    for (size_t n = 0; n < sources; ++n) record.sources.push_back(sourceAt(first + n));
    receive(Ilvo::buildV3Report({record}, {.src = host}));
  }

  const Load& load_;
  NoOutput output_;
  Agent::EventBudget events_{output_, 100};
  const Agent::LibraryMessages messages_{events_};
  BenchQuerier bench_{Gmp::Igmp::igmpVersion3};
  Agent::IntakeProcess process_;
  const Ptr<Agent::IntakeConfig> config_ = Mox::makePtr<Agent::IntakeConfig>("bench");
  Agent::Intake intake_{process_, config_, Mox::makePtr<Agent::IntakeStatus>("bench"),
                        Ptr<QuerierStatus>(&bench_.status()), *this};
};

// The same querier for all benchmarks of a load, which run one after the other: what a packet
// changes is changed back. Time stands still: what is due later is not the packet's cost.
LoadedQuerier& loaded(const Load& load) {
  Mox::virtualTimeIs(1000.0);
  static std::unique_ptr<LoadedQuerier> querier;
  if (!querier || &querier->load() != &load) {
    querier.reset();
    querier = std::make_unique<LoadedQuerier>(load);
  }
  return *querier;
}

// As many records as fit into a message of so many bytes.
struct Shape {
  const char* name;
  size_t sources;  // of each record
  bool oneGroup;   // of all records, or another one of each
  bool knownGroups;
  bool validSources = true;
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
    Shape{"invalidSources", 2200, true, true, false},
};
// Where the mode of the groups and the role matter.
constexpr std::array shapesOfOtherLoads{
    Shape{"groups", 0, false, true},
    Shape{"groupsFewSources", 4, false, true},
    Shape{"groupsManySources", 360, false, true},
    Shape{"oneRecord", 2200, true, true},
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
    const size_t begin = random() % sourcesOfGroup();
    for (size_t n = 0; n < sources; ++n) {
      record.sources.push_back(shape.validSources ? sourceAt(begin + n)
                                                  : invalidSourceAt(begin + n));
    }
    left -= 8 + 4 * sources;
    records.push_back(std::move(record));
  }
  return records;
}

void finish(benchmark::State& state, LoadedQuerier& querier, double most) {
  state.counters["most_us"] = most * 1e6;
  if (querier.sources() != mostGroups() * sourcesOfGroup()) {
    state.SkipWithError("the querier has lost its sources");
  }
  budget(state, mostNanoseconds);
}

void report(benchmark::State& state, const Load& load, const Shape& shape, U8 type) {
  const auto bytes = static_cast<size_t>(state.range(0));
  LoadedQuerier& querier = loaded(load);
  std::mt19937 random(7);
  double most = 0.0;
  for (auto _ : state) {
    const std::vector<V3Record> records = recordsOf(shape, type, bytes, random);
    const double seconds = querier.receive(Ilvo::buildV3Report(records, {.src = host}));
    most = std::max(most, seconds);
    state.SetIterationTime(seconds);
    std::set<IpAddr> named;
    for (const V3Record& record : records) named.insert(record.group);
    for (const IpAddr group : named) querier.restore(group);
  }
  finish(state, querier, most);
}

Bytes sourceQuery(IpAddr group, size_t bytes) {
  std::vector<IpAddr> sources;
  for (size_t n = 0; n < (bytes - 40) / 4; ++n) sources.push_back(sourceAt(n));
  return Ilvo::buildV3Query({.group = group, .code = 10, .sources = sources}, {.src = otherRouter});
}

// Messages about one group.
struct Message {
  const char* name;
  Bytes (*packet)(IpAddr group, size_t bytes);
};
constexpr std::array messages{
    Message{"v1Report",
            [](IpAddr group, size_t) { return Ilvo::buildV1Report(group, {.src = host}); }},
    Message{"v2Report",
            [](IpAddr group, size_t) { return Ilvo::buildV2Report(group, {.src = host}); }},
    Message{"v2Leave",
            [](IpAddr group, size_t) { return Ilvo::buildV2Leave(group, {.src = host}); }},
    Message{"v2Query", [](IpAddr group,
                          size_t) { return Ilvo::buildV2Query(group, 10, {.src = otherRouter}); }},
    Message{"groupQuery",
            [](IpAddr group, size_t) {
              return Ilvo::buildV3Query({.group = group, .code = 10}, {.src = otherRouter});
            }},
    Message{"sourceQuery", sourceQuery},
};

void message(benchmark::State& state, const Load& load, const Message& kind) {
  LoadedQuerier& querier = loaded(load);
  double most = 0.0;
  size_t number = 0;
  for (auto _ : state) {
    const IpAddr group = groupAt(number++ % mostGroups());
    const double seconds = querier.receive(kind.packet(group, static_cast<size_t>(state.range(0))));
    most = std::max(most, seconds);
    state.SetIterationTime(seconds);
    querier.restore(group);
  }
  finish(state, querier, most);
}

// Retransmissions of all groups are pending when the election is lost, or when the new querier
// sends another query.
void handOver(benchmark::State& state, bool isFirst) {
  LoadedQuerier& querier = loaded(asQuerier);
  const Bytes query = Ilvo::buildV3Query({.code = 100}, {.src = otherRouter});
  double most = 0.0;
  for (auto _ : state) {
    for (size_t n = 0; n < mostGroups(); ++n) {
      querier.querier().groupSm(groupAt(n))->rexmitGroupQueryIs(2);
    }
    if (!isFirst) querier.receive(query);
    const double seconds = querier.receive(query);
    most = std::max(most, seconds);
    state.SetIterationTime(seconds);
    for (size_t n = 0; n < mostGroups(); ++n) {
      querier.querier().groupSm(groupAt(n))->rexmitGroupQueryIs(0);
    }
    querier.querier().transitionToNonQuerierIs(false);
    querier.roleIs(true);
  }
  finish(state, querier, most);
}

template <class Run>
void registerOne(const std::string& name, Run run) {
  benchmark::RegisterBenchmark(("WorstPacket/" + name).c_str(), run)
      ->Apply(sizes<1500, 9000>)
      ->UseManualTime()
      ->Iterations(tiny() ? 1 : 5);
}

void registerReports(const Load& load, std::span<const Shape> all) {
  const char* const types[] = {"mixed", "isIn", "isEx", "toIn", "toEx", "allow", "block"};
  for (const Shape& shape : all) {
    for (size_t type = 0; type < std::size(types); ++type) {
      registerOne(std::string(load.name) + shape.name + "/" + types[type],
                  [&load, &shape, type](benchmark::State& state) {
                    report(state, load, shape, static_cast<U8>(type));
                  });
    }
  }
}

void registerMessages(const Load& load) {
  for (const Message& each : messages) {
    registerOne(std::string(load.name) + each.name,
                [&load, &each](benchmark::State& state) { message(state, load, each); });
  }
}

const bool registered = [] {
  registerReports(asQuerier, shapes);
  registerMessages(asQuerier);
  registerOne("handOver", [](benchmark::State& state) { handOver(state, true); });
  registerOne("handOverAgain", [](benchmark::State& state) { handOver(state, false); });
  registerReports(includeAsQuerier, shapesOfOtherLoads);
  registerReports(asNonQuerier, shapesOfOtherLoads);
  registerMessages(asNonQuerier);
  return true;
}();

}  // namespace
}  // namespace Bench
