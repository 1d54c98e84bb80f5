// What holds whatever is sent: random packets, hostile ones among them, through the intake and a
// real querier. Never more groups and sources than the limits allow, and never many more bytes sent
// than received.
//
// INTAKE_PROPERTY_RUNS sets the number of sequences, INTAKE_PROPERTY_SEED the first seed. A
// failure names its seed and step: that seed with one run shows it again.
#include <cstdlib>
#include <random>

#include <Ilvo/Checksum.h>

#include "IntakeBounds.h"
#include "IntakeTestSupport.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U16;
using Mox::U32;
using Mox::U64;
using Mox::U8;

U64 fromEnvironment(const char* name, U64 otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

class IntakePropertyTest : public IntakeTest {
 protected:
  // Small, so that random packets reach them; a query has room for all sources of a group.
  static constexpr U32 maxGroups_ = 40;
  static constexpr U32 maxGroupSources_ = 64;
  static constexpr U32 maxSources_ = 400;
  static constexpr U32 maxProcessGroups_ = 45;
  static constexpr U32 maxProcessSources_ = 420;
  static constexpr size_t mostPacketBytes_ = 9000;

  size_t below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random_); }
  bool oneIn(size_t n) { return below(n) == 0; }
  template <class T>
  T oneOf(std::initializer_list<T> values) {
    return *(values.begin() + below(values.size()));
  }
  IpAddr anyGroup() {
    if (oneIn(20)) return oneOf({IpAddr(224, 0, 0, 5), IpAddr(10, 9, 9, 9), IpAddr()});
    return IpAddr(0xef010000 + static_cast<U32>(below(oneIn(2) ? 8 : 300)));
  }
  IpAddr anySender() { return oneOf({lowest_, lower_, higher_, host_, IpAddr(), own_}); }
  std::vector<IpAddr> anySources(size_t most) {
    std::vector<IpAddr> all;
    const size_t range = oneOf<size_t>({20, 1000, 1000000});
    for (size_t n = below(most + 1); n > 0; --n) {
      all.emplace_back(0x0a010000 + static_cast<U32>(below(range)));
    }
    if (oneIn(10)) all.emplace_back();
    if (oneIn(10)) all.emplace_back(224, 0, 0, 1);
    return all;
  }

  Bytes anyV3Report() {
    std::vector<Ilvo::V3Record> records;
    size_t room = oneOf<size_t>({100, 1400, mostPacketBytes_ - 100});
    const IpAddr favourite = anyGroup();
    while (room >= 60) {
      Ilvo::V3Record record{.type = static_cast<U8>(oneIn(20) ? below(256) : 1 + below(6)),
                            .group = oneIn(3) ? favourite : anyGroup(),
                            .sources = anySources(std::min<size_t>(
                                oneOf<size_t>({0, 0, 3, 80, 2000}), (room - 60) / 4)),
                            .auxWords = static_cast<U8>(oneIn(20) ? below(3) : 0)};
      if (oneIn(100)) record.numSources = static_cast<U16>(below(65536));
      room -= std::min(room, 16 + 4 * record.sources.size());
      records.push_back(std::move(record));
      if (oneIn(60)) break;
    }
    return Ilvo::buildV3Report(records, {.src = anySender()});
  }
  Bytes anyPacket() {
    switch (below(12)) {
      case 0: return Ilvo::buildV1Report(anyGroup(), {.src = anySender()});
      case 1: return Ilvo::buildV2Report(anyGroup(), {.src = anySender()});
      case 2: return Ilvo::buildV2Leave(anyGroup(), {.src = anySender()});
      case 3:
        return Ilvo::buildV2Query(oneIn(2) ? IpAddr() : anyGroup(), static_cast<U8>(below(256)),
                                  {.src = anySender()});
      case 4:
        return Ilvo::buildV3Query({.group = oneIn(2) ? IpAddr() : anyGroup(),
                                   .code = static_cast<U8>(below(256)),
                                   .sFlag = oneIn(2),
                                   .qrv = static_cast<U8>(below(8)),
                                   .qqic = static_cast<U8>(below(256)),
                                   .sources = anySources(300)},
                                  {.src = anySender()});
      default: return anyV3Report();
    }
  }
  // A byte of the message is changed, and the checksum is right again.
  void damage(Bytes& packet) {
    const size_t header = size_t{packet[0] & 0x0fU} * 4;
    packet[header + below(packet.size() - header)] = static_cast<U8>(below(256));
    const std::span<U8> message = std::span(packet).subspan(header);
    if (message.size() < 4) return;
    message[2] = message[3] = 0;
    const U16 sum = Ilvo::checksum(message);
    message[2] = static_cast<U8>(sum >> 8);
    message[3] = static_cast<U8>(sum);
  }

  void begin(U64 seed) {
    stop();
    Mox::virtualTimeIs(1000.0);
    random_.seed(seed);
    srand48(static_cast<long>(seed));
    querierStatus_->groupDelAll();
    querierStatus_->electedQuerierAddrIs(IpAddr());
    querierStatus_->stateIs(Gmp::Igmp::QuerierStatus::querierStateInitial);
    config_->maxGroupsIs(maxGroups_);
    config_->maxGroupSourcesIs(maxGroupSources_);
    config_->maxSourcesIs(maxSources_);
    config_->maxQueryBurstIs(oneOf<U32>({10, 1000, 20000}));
    processConfig().maxProcessGroupsIs(maxProcessGroups_);
    processConfig().maxProcessSourcesIs(maxProcessSources_);
    sent_.clear();
    bounds_.begin();
    start();
  }

  void step() {
    if (oneIn(4)) {
      advance(oneOf({0.0, 0.5, 1.0, 3.0, 30.0, 300.0}));
      return;
    }
    Bytes packet = anyPacket();
    if (oneIn(5)) damage(packet);
    ASSERT_LE(packet.size(), mostPacketBytes_);
    const size_t header = size_t{packet[0] & 0x0fU} * 4;
    bounds_.receives(packet.size() - header);
    for (received(packet); !rest_.empty(); received(Bytes(rest_))) {
    }
    bounds_.handled();
  }
  void expectLimits() {
    for (const Sent& query : std::exchange(sent_, {})) bounds_.sends(query.group, query.bytes);
    EXPECT_THAT(bounds_.breaches(), testing::IsEmpty());
  }

  IntakeBounds bounds_{config_, process_.config, querierConfig_, querierStatus_};
  std::mt19937_64 random_;
};

TEST_F(IntakePropertyTest, randomPacketsStayWithinTheLimits) {
  const U64 runs = fromEnvironment("INTAKE_PROPERTY_RUNS", 200);
  const U64 first = fromEnvironment("INTAKE_PROPERTY_SEED", 1);
  Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
  size_t sent = 0;
  for (U64 seed = first; seed < first + runs; ++seed) {
    begin(seed);
    for (int at = 0; at < 100; ++at) {
      step();
      expectLimits();
      if (HasFailure()) FAIL() << "seed " << seed << ", step " << at;
    }
    sent += bounds_.sentBytes();
  }
  Mox::eventLogSinkIs({});
  EXPECT_GT(sent, runs) << "the sequences must make the querier ask";
  // Each limit was in the way of some packet.
  for (const IntakeRule rule :
       {IntakeRule::groupLimit, IntakeRule::groupSourceLimit, IntakeRule::sourceLimit,
        IntakeRule::groupRecordLimit, IntakeRule::queryLimit, IntakeRule::specificQuery,
        IntakeRule::querierTimes}) {
    EXPECT_GT(counted(rule), 0u) << nameOf(rule).name;
  }
}

}  // namespace
}  // namespace Agent
