// A host of the library with its own event loop. The host controls time: it turns the timer wheel
// when a timer is due, and between two turns it hands in received packets and sends the queries.
// Time is virtual here, so that the program ends at once. A real host sleeps where this one sets
// the clock, and uses sockets where this one prints queries and builds packets.
//
//   cmake -S . -B build -DCMAKE_PREFIX_PATH=<where the library is installed>
//   cmake --build build && build/embed
#include <algorithm>
#include <cstdio>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <GmpIgmpQuerierSm/QueryOutput.h>
#include <Ilvo/Checksum.h>
#include <Mox/ActivityClock.h>

namespace {

using Gmp::Igmp::QuerierSm;
using Ilvo::IpAddr;
using Mox::Ptr;
using Mox::Seconds;

constexpr Mox::U8 v2Report = 0x16;
constexpr Mox::U8 v2Leave = 0x17;
constexpr IpAddr hostAddr(10, 0, 0, 7);
constexpr IpAddr allRouters(224, 0, 0, 2);
constexpr IpAddr group(239, 1, 1, 1);

// A sending socket would be here. The host puts the IP header around the IGMP message.
void send(const Gmp::Igmp::PublishedQuery& query) {
  const IpAddr to = query.dstGroup;
  std::printf("%7.1f s  query for %s, %zu bytes\n", Mox::now(),
              to.isZero() ? "all groups" : to.stringValue().c_str(), query.message->offsetBytes());
}

class Host {
 public:
  // The loop: sleep until the wheel wants to turn, turn it.
  void run(Seconds until) {
    while (wheel_->nextDue() <= until) {
      Mox::virtualTimeIs(std::max(Mox::now(), wheel_->nextDue()));
      wheel_->turn(Mox::now());
    }
    Mox::virtualTimeIs(until);
    wheel_->turn(until);
  }

  // A receiving socket would hand in whole IPv4 packets, as here.
  void doRx(const Ptr<Ilvo::Pkt>& pkt) { querier_->doRxPkt(pkt); }

  void show() const {
    std::printf("%7.1f s  querier on %s: %zu groups\n", Mox::now(), querier_->name().c_str(),
                status_->group().size());
  }

 private:
  Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(Mox::now());
  Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("vlan10");
  Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  Gmp::Igmp::QueryOutput output_{&send};  // exists before the querier, which may send at once
  Ptr<QuerierSm> querier_ = Gmp::Igmp::querierSmFactory(config_, status_, IpAddr(10, 0, 0, 1), 1500,
                                                        0, wheel_, wheel_, wheel_, false, &output_);
};

// A packet as a host on the link sends it: an IPv4 header of 20 bytes, an IGMP message of 8.
Ptr<Ilvo::Pkt> igmpPacket(Mox::U8 type, IpAddr to) {
  constexpr std::size_t ipBytes = 20;
  constexpr std::size_t igmpBytes = 8;
  const auto pkt = Mox::makePtr<Ilvo::Pkt>(ipBytes + igmpBytes);
  pkt->reserveHead(igmpBytes);
  pkt->u8Is(0, type);
  pkt->ipAddrIs(4, group);
  pkt->u16Is(2, Ilvo::checksum(pkt->data()));
  pkt->reserveHead(ipBytes);
  pkt->u8Is(0, 0x45);
  pkt->u16Is(2, ipBytes + igmpBytes);
  pkt->u8Is(8, 1);
  pkt->u8Is(9, 2);
  pkt->ipAddrIs(12, hostAddr);
  pkt->ipAddrIs(16, to);
  pkt->u16Is(10, Ilvo::checksum(pkt->data().first(ipBytes)));
  return pkt;
}

}  // namespace

int main() {
  Mox::virtualTimeIs(1000.0);
  Host host;
  host.run(1060.0);
  host.doRx(igmpPacket(v2Report, group));
  host.show();
  host.doRx(igmpPacket(v2Leave, allRouters));
  host.run(1070.0);
  host.show();
  return 0;
}
