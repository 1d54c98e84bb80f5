// The cost of version 3 reports: records that refresh groups, sources that are new or refreshed.
#include <GmpIgmpQuerierSm/QuerierSm.h>

#include "BenchQuerier.h"
#include "Budget.h"

namespace Bench {
namespace {

using Gmp::Igmp::igmpVersion3;
using Packet = Ptr<Ilvo::Pkt>;

constexpr size_t recordsPerReport = 60;
constexpr Ilvo::U8 modeIsExclude = 2;
constexpr Ilvo::U8 allowNewSources = 5;

Packet packetOf(const std::vector<Ilvo::V3Record>& records) {
  return Mox::makePtr<Ilvo::Pkt>(Ilvo::buildV3Report(records, {.src = IpAddr(10, 0, 0, 9)}));
}

// Reports of 60 records that together name each of the groups.
std::vector<Packet> reportsOf(const std::vector<IpAddr>& groups) {
  std::vector<Packet> packets;
  std::vector<Ilvo::V3Record> records;
  for (const IpAddr group : groups) {
    records.push_back({.type = modeIsExclude, .group = group});
    if (records.size() == recordsPerReport) {
      packets.push_back(packetOf(records));
      records.clear();
    }
  }
  if (!records.empty()) packets.push_back(packetOf(records));
  return packets;
}

// Reports that together name that many sources of each group, as full as an Ethernet frame allows.
std::vector<Packet> sourceReports(const std::vector<IpAddr>& groups, size_t sources,
                                  uint32_t firstSource) {
  constexpr size_t sourcesPerReport = 300;
  std::vector<Packet> packets;
  std::vector<Ilvo::V3Record> records;
  size_t room = sourcesPerReport;
  const auto send = [&] {
    if (!records.empty()) packets.push_back(packetOf(records));
    records.clear();
    room = sourcesPerReport;
  };
  for (const IpAddr group : groups) {
    for (size_t s = 0; s < sources; ++s) {
      if (room == 0) send();
      if (records.empty() || records.back().group != group) {
        records.push_back({.type = allowNewSources, .group = group});
      }
      records.back().sources.emplace_back(firstSource + static_cast<uint32_t>(s));
      --room;
    }
  }
  send();
  return packets;
}

void refreshRecord(benchmark::State& state) {
  const size_t count = static_cast<size_t>(state.range(0));
  BenchQuerier bench(igmpVersion3);
  for (const Packet& pkt : reportsOf(shuffledGroups(count))) bench.receive(pkt);
  const std::vector<Packet> reports = reportsOf(shuffledGroups(count, 2));
  for (auto _ : state) {
    for (const Packet& pkt : reports) bench.receive(pkt);
  }
  if (bench.status().group().size() != count) state.SkipWithError("not all groups are there");
  budget(state, count > 1000 ? 400.0 : 90.0, count);
}
BENCHMARK(refreshRecord)->Name("doRxPkt/v3Report/refreshedRecord")->Apply(sizes<1000, 1000000>);

struct Shape {
  size_t groups;
  size_t sources;  // of each group
};

Shape shapeOf(const benchmark::State& state) {
  return {static_cast<size_t>(state.range(0)), static_cast<size_t>(state.range(1))};
}

constexpr uint32_t firstSource = 0x0a010000;

std::vector<Packet> sourceReports(Shape shape) {
  return sourceReports(shuffledGroups(shape.groups), shape.sources, firstSource);
}

void shapes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({100, 100});
  if (tiny()) return;
  benchmark->Args({1, 10000})->Args({1000, 10});
}

void newSource(benchmark::State& state) {
  const Shape shape = shapeOf(state);
  const std::vector<Packet> reports = sourceReports(shape);
  const std::vector<Packet> groups =
      sourceReports(shuffledGroups(shape.groups), 1, firstSource - 1);
  for (auto _ : state) {
    BenchQuerier bench(igmpVersion3);
    for (const Packet& pkt : groups) bench.receive(pkt);
    timed(state, [&] {
      for (const Packet& pkt : reports) bench.receive(pkt);
    });
    if (bench.status().group().size() != shape.groups) state.SkipWithError("groups are missing");
  }
  budget(state, 350.0, shape.groups * shape.sources);
}
BENCHMARK(newSource)->Name("doRxPkt/v3Report/newSource")->Apply(shapes)->UseManualTime();

void refreshSource(benchmark::State& state) {
  const Shape shape = shapeOf(state);
  const std::vector<Packet> reports = sourceReports(shape);
  BenchQuerier bench(igmpVersion3);
  for (const Packet& pkt : reports) bench.receive(pkt);
  for (auto _ : state) {
    for (const Packet& pkt : reports) bench.receive(pkt);
  }
  budget(state, 60.0, shape.groups * shape.sources);
}
BENCHMARK(refreshSource)->Name("doRxPkt/v3Report/refreshedSource")->Apply(shapes);

// All sources time out at one instant, and end their groups.
void expireSources(benchmark::State& state) {
  const Shape shape = shapeOf(state);
  const std::vector<Packet> reports = sourceReports(shape);
  for (auto _ : state) {
    Mox::virtualTimeIs(1000.0);
    BenchQuerier bench(igmpVersion3);
    for (const Packet& pkt : reports) bench.receive(pkt);
    Mox::virtualTimeIs(2000.0);
    timed(state, [&] { bench.wheel().turn(2000.0); });
    if (!bench.status().group().empty()) state.SkipWithError("groups are left");
    Mox::realTimeIs();
  }
  budget(state, 400.0, shape.groups * shape.sources);
}
BENCHMARK(expireSources)->Name("expiry/sourcesInOneInstant")->Apply(shapes)->UseManualTime();

}  // namespace
}  // namespace Bench
