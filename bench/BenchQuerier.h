// One querier with its surroundings, and packets for it: one of each kind, changed in place, as a
// capture ring reuses the same buffers, which stay in the cache.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Ilvo/Checksum.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Mox/ActivityClock.h>
#include <Mox/GenericAccess.h>

namespace Bench {

using Gmp::Igmp::IpAddr;
using Gmp::Igmp::Ptr;

class BenchQuerier {
 public:
  explicit BenchQuerier(Gmp::Igmp::IgmpVersion version = Gmp::Igmp::igmpVersion2) {
    config_->querierVersionIs(version);
    start();
  }

  // A new instance on the same configuration and status.
  void start() {
    querier_ = nullptr;
    querier_ = Gmp::Igmp::querierSmFactory(config_, status_, IpAddr(10, 0, 0, 1), 1500, 0, wheel_,
                                           wheel_, wheel_, false);
  }
  void stop() { querier_ = nullptr; }

  Gmp::Igmp::QuerierSm& querier() { return *querier_; }
  Gmp::Igmp::QuerierStatus& status() { return *status_; }
  Obel::TimerWheel& wheel() { return *wheel_; }

  // A version 2 report, as from a host.
  void reportV2(IpAddr group) { querier_->doRxPkt(reportOf(group, *reports_[0])); }

  // The same through generic access.
  void reportV2(IpAddr group, const Mox::Call<Ptr<Ilvo::Pkt>>& doRxPkt) {
    doRxPkt(*querier_, reportOf(group, *reports_[0]));
  }

  // Version 2 reports for all of them, as from a host that reads batches: each is prefetched
  // some packets before it is handed in.
  void reportsV2(const std::vector<IpAddr>& groups) {
    constexpr size_t ahead = Gmp::Igmp::GroupLookahead::ahead;
    const auto packet = [&](size_t i) -> Ilvo::Pkt& { return *reports_[i % reports_.size()]; };
    const auto prefetch = [&](size_t i) {
      if (i < groups.size()) querier_->prefetchRxPkt(*reportOf(groups[i], packet(i)));
    };
    for (size_t i = 0; i < ahead; ++i) prefetch(i);
    for (size_t i = 0; i < groups.size(); ++i) {
      prefetch(i + ahead);
      querier_->doRxPkt(Ptr<Ilvo::Pkt>(&packet(i)));
    }
  }

  // Any packet; its bytes stay.
  void receive(const Ptr<Ilvo::Pkt>& pkt) {
    pkt->offsetsReset();
    querier_->doRxPkt(pkt);
  }

 private:
  static constexpr size_t messageAt = 24;  // behind an IP header with Router Alert

  static Ptr<Ilvo::Pkt> reportOf(IpAddr group, Ilvo::Pkt& pkt) {
    pkt.offsetsReset();
    pkt.ipAddrIs(messageAt + 4, group);
    pkt.u16Is(messageAt + 2, 0);
    pkt.u16Is(messageAt + 2, Ilvo::checksum(pkt.data().subspan(messageAt, 8)));
    return Ptr<Ilvo::Pkt>(&pkt);
  }
  static std::vector<Ptr<Ilvo::Pkt>> reportRing() {
    std::vector<Ptr<Ilvo::Pkt>> ring;
    while (ring.size() < 16) {
      ring.push_back(Mox::makePtr<Ilvo::Pkt>(
          Ilvo::buildV2Report(IpAddr(239, 0, 0, 1), {.src = IpAddr(10, 0, 0, 9)})));
    }
    return ring;
  }

  Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(Mox::now());
  Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("bench");
  Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  Ptr<Gmp::Igmp::QuerierSm> querier_;
  std::vector<Ptr<Ilvo::Pkt>> reports_ = reportRing();
};

// The first `count` groups of 232.0.0.0/5, in an order that is independent of their values.
inline std::vector<IpAddr> shuffledGroups(size_t count, uint32_t seed = 1) {
  std::vector<IpAddr> groups;
  groups.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    groups.emplace_back(static_cast<uint32_t>(0xe8000100u + i * 7));
  }
  std::shuffle(groups.begin(), groups.end(), std::mt19937(seed));
  return groups;
}

}  // namespace Bench
