// Fixture of the tests with random sequences of packets, configuration changes, restarts,
// congestion and time.
//
// QUERIER_PROPERTY_RUNS sets the number of sequences, QUERIER_PROPERTY_SEED the first seed. A
// failure names its seed and step: that seed with one run shows it again.
//
//   forEachSequence(10000, [&] { expectInvariants(); });
#pragma once

#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <GmpIgmpQuerierTestSupport/QuerierInvariants.h>

#include "TestBench.h"

namespace Gmp::Igmp::testing {

class RandomBench : public TestBench {
 protected:
  static constexpr IpAddr lowest_{10, 0, 0, 1};  // wins against all others

  static U64 environmentNumber(const char* name, U64 otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
  }
  size_t below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random_); }
  bool oneIn(size_t n) { return below(n) == 0; }
  template <class T>
  T oneOf(std::initializer_list<T> values) {
    return *(values.begin() + below(values.size()));
  }
  IpAddr anyGroup() {
    return oneOf({IpAddr(239, 1, 1, 1), IpAddr(239, 1, 1, 1), IpAddr(239, 1, 1, 2),
                  IpAddr(239, 1, 1, 3), IpAddr(224, 0, 0, 5), IpAddr(10, 9, 9, 9)});
  }
  IpAddr anyRouter() { return oneOf({lowest_, lower_, own_, higher_, higher_, IpAddr()}); }
  std::vector<IpAddr> anySources() {
    std::vector<IpAddr> all;
    for (size_t n = below(5); n > 0; --n) all.emplace_back(0x0a070000 + static_cast<U32>(below(6)));
    if (oneIn(10)) all.emplace_back();
    if (oneIn(20)) all.emplace_back(224, 0, 0, 1);
    return all;
  }
  static bool learnable(IpAddr group) {
    return group.isMulticast() && !group.isReservedMulticast();
  }

  void begin(U64 seed) {
    invariants_.reset();
    freshWorld();
    random_.seed(seed);
    srand48(static_cast<long>(seed));
    config_->sendQueryIs(!oneIn(5));
    setup_.mtu = oneOf<U32>({0, 48, 1500});
    setup_.debugYieldAfterOne = oneIn(2);
    expected_ = {};
    sent_.clear();
    events_.clear();
    invariants_.emplace(wheel_);
    startWatched();
  }
  void startWatched() {
    start();
    if (monitor_) querier_->attrLogSmIs(monitor_);
    invariants_->watch(querier_);
  }
  void releaseWatched() {
    invariants_->release();
    release();
  }

  // Each step does one thing and describes it.
  std::string step() {
    switch (below(16)) {
      case 0: return receiveAnyV1Report();
      case 1:
      case 2: return receiveAnyV2Report();
      case 3: return receiveAnyLeave();
      case 4:
      case 5:
      case 6:
      case 7: return receiveAnyV3Report();
      case 8: return receiveAnyOldQuery();
      case 9:
      case 10: return receiveAnyV3Query();
      case 11: return configure();
      case 12:
      case 13: return wait({0.0, 0.1, 0.5, 1.0, 2.0, 5.0});
      case 14: return wait({10.0, 60.0, 130.0, 300.0});
      default: return disturb();
    }
  }

  std::string receiveAnyV1Report() {
    const IpAddr group = anyGroup();
    if (learnable(group)) ++expected_.v1Reports;
    reportedIf(learnable(group), group);
    receiveV1Report(group);
    return "version 1 report " + group.stringValue();
  }
  std::string receiveAnyV2Report() {
    const IpAddr group = anyGroup();
    const bool taken = learnable(group) && config_->querierVersion() != igmpVersion1;
    if (taken) ++expected_.v2Reports;
    reportedIf(taken, group);
    receiveV2Report(group);
    return "version 2 report " + group.stringValue();
  }
  std::string receiveAnyLeave() {
    const IpAddr group = anyGroup();
    const bool taken = group.isMulticast() && config_->querierVersion() != igmpVersion1 &&
                       querier_->groupSm(group);
    if (taken) ++expected_.leaves;
    receiveLeave(group);
    return "leave " + group.stringValue();
  }
  std::string receiveAnyV3Report() {
    std::vector<Ilvo::V3Record> records;
    std::string text = "version 3 report";
    const bool taken = config_->querierVersion() == igmpVersion3;
    for (size_t n = below(4); n > 0; --n) {
      const IpAddr group = anyGroup();
      const auto type = static_cast<U8>(below(8));
      records.push_back({.type = type, .group = group, .sources = anySources()});
      reportedIf(taken && learnable(group), group);
      text += " type " + std::to_string(type) + " " + group.stringValue();
    }
    if (taken) ++expected_.v3Reports;
    receiveV3Report(records);
    return text;
  }
  std::string receiveAnyOldQuery() {
    const IpAddr group = oneIn(2) ? IpAddr() : anyGroup();
    const U8 code = oneOf<U8>({0, 10, 100});
    code == 0 ? ++expected_.v1Queries : ++expected_.v2Queries;
    createdIfNew(group);
    receiveV2Query(anyRouter(), group, code);
    return "old query " + group.stringValue();
  }
  std::string receiveAnyV3Query() {
    const IpAddr group = oneIn(2) ? IpAddr() : anyGroup();
    const Ilvo::V3QueryFields fields{
        .group = group,
        .code = oneOf<U8>({0, 1, 10, 100, 0x8a}),
        .sFlag = oneIn(3),
        .qrv = static_cast<U8>(below(8)),
        .qqic = oneOf<U8>({0, 10, 125, 0x8a}),
        .sources = group.isZero() ? std::vector<IpAddr>{} : anySources()};
    fields.code == 0 ? ++expected_.v1Queries : ++expected_.v3Queries;
    if (fields.code == 0 || !fields.sFlag) createdIfNew(group);
    receiveV3Query(anyRouter(), fields);
    return "version 3 query " + group.stringValue();
  }

  std::string configure() {
    switch (below(8)) {
      case 0: config_->robustnessIs(static_cast<U32>(1 + below(3))); return "robustness";
      case 1: config_->queryIntervalIs(oneOf({10.0, 60.0, 125.0})); return "query interval";
      case 2: config_->queryResponseIntervalIs(oneOf({1.0, 10.0})); return "response interval";
      case 3: config_->lastMemberQueryCountIs(static_cast<U32>(below(4))); return "LMQC";
      case 4: config_->lastMemberQueryIntervalIs(oneOf({0.0, 0.5, 1.0})); return "LMQI";
      case 5:
      case 6:
        config_->querierVersionIs(oneOf({igmpVersion1, igmpVersion2, igmpVersion3, igmpVersion3}));
        return "version " + stringValue(config_->querierVersion());
      default: config_->sendQueryIs(!config_->sendQuery()); return "sendQuery";
    }
  }

  std::string wait(std::initializer_list<Seconds> durations) {
    const Seconds duration = oneOf(durations);
    runFor(duration);
    return "wait " + Mox::textOf(duration);
  }

  std::string disturb() {
    switch (below(5)) {
      case 0:
        ++expected_.errors;
        receive(Ilvo::buildV2Report(anyGroup(), {.badIgmpChecksum = true}));
        return "broken packet";
      case 1:
        ++expected_.others;
        receive(Ilvo::buildIgmpPacket({0x13, 0, 0, 0, 0, 0, 0, 0}, IpAddr(224, 0, 0, 1)));
        return "other packet";
      case 2:
        invariants_->attrLogWasClogged();
        clog();
        return "log clogged";
      case 3:
        if (monitor_) unclog();
        return "log flows";
      default:
        releaseWatched();
        startWatched();
        return "restart";
    }
  }

  // After a report a group is in EXCLUDE mode, or has sources, or ends.
  void reportedIf(bool taken, IpAddr group) {
    if (taken) invariants_->reported(group);
  }
  // A query about an unknown group creates its machine without any report.
  void createdIfNew(IpAddr group) {
    if (!group.isZero() && !querier_->groupSm(group)) invariants_->bornOfQuery(group);
  }

  // Runs that many sequences of 40 steps, unless the environment sets the number; the number run.
  // Stops at the first failure.
  U64 forEachSequence(U64 runs, const std::function<void()>& afterStep,
                      const std::function<void()>& afterSequence) {
    runs = environmentNumber("QUERIER_PROPERTY_RUNS", runs);
    const U64 first = environmentNumber("QUERIER_PROPERTY_SEED", 1);
    for (U64 seed = first; seed < first + runs; ++seed) {
      begin(seed);
      std::string steps;
      for (int at = 0; at < 40; ++at) {
        steps += "\n  " + step();
        afterStep();
        if (!HasFailure()) continue;
        ADD_FAILURE() << "seed " << seed << ", step " << at << ":" << steps;
        return runs;
      }
      afterSequence();
      releaseWatched();
    }
    return runs;
  }

  std::mt19937_64 random_;
  ReceiveCounters expected_;  // what the received packets must have counted
  std::optional<QuerierInvariants> invariants_;
};

}  // namespace Gmp::Igmp::testing
