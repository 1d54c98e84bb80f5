// For any packets at any time: between two of them all invariants of a querier hold, each packet
// changes the counters that follow from its bytes, and timers settle.
//
// The first byte is the setup (see World). Steps follow: a byte with the operation (lowest two
// bits) and the sender (next two), a byte with the time that passes before it and, except for a
// restart, a byte with a length and as many bytes. These are a packet as it is, a packet whose
// checksums are corrected, or an IGMP message that is put into a correct packet. A restart puts
// another querier on the same status.
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierTestSupport/QuerierInvariants.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Mox/ActivityClock.h>

#include "Bytes.h"
#include "Messages.h"
#include "Property.h"
#include "RxPktOracle.h"

namespace {

using Fuzz::property;
using Fuzz::Verdict;
using Gmp::Igmp::QuerierSm;
using Gmp::Igmp::testing::ReceiveCounters;
using Ilvo::IpAddr;
using Mox::Ptr;
using Mox::Seconds;
using Mox::U32;
using Mox::U8;

constexpr Seconds begin = 1000.0;

// Short waits in eighths of a second, so that timers and packets coincide; long ones up to 640 s.
Seconds waitOf(U8 code) { return code < 128 ? code / 8.0 : (code - 127) * 5.0; }

class World {
 public:
  explicit World(U8 setup)
      : rules_{.configured = static_cast<Gmp::Igmp::IgmpVersion>(3 - std::min(setup & 3, 2)),
               .boundary = (setup & 0x08) != 0},
        mtu_(std::array<U32, 4>{1500, 48, 0, 576}[setup >> 4 & 3]),
        yields_((setup & 0x40) != 0) {
    srand48(1);
    Gmp::Igmp::machineTrace->facilityLevelIs((setup & 0x80) != 0 ? 8 : Mox::TraceHandle::off);
    config_->querierVersionIs(rules_.configured);
    boundary_->boundaryIs(*Ilvo::IpGenPrefix::parse("239.255.0.0/16"), true);
    start();
  }
  ~World() {
    invariants_.release();
    Gmp::Igmp::machineTrace->facilityLevelIs(Mox::TraceHandle::off);
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void step(Fuzz::Bytes& input) {
    const U8 what = input.u8();
    pass(waitOf(input.u8()));
    if (what % 4 == 3) {
      invariants_.release();
      querier_ = nullptr;
      start();
    } else {
      receive(packetOf(what, input.take(input.u8())));
    }
    requireInvariants();
  }

 private:
  void start() {
    querier_ = Gmp::Igmp::querierSmFactory(config_, status_, IpAddr(10, 0, 0, 5), mtu_, 0, wheel_,
                                           wheel_, wheel_, yields_);
    if (rules_.boundary) querier_->mcastBoundaryIntfStatusIs(boundary_);
    invariants_.watch(querier_);
  }

  static std::vector<U8> packetOf(U8 what, std::span<const U8> bytes) {
    static constexpr std::array senders{IpAddr(10, 0, 0, 77), IpAddr(10, 0, 0, 2),
                                        IpAddr(10, 0, 0, 9), IpAddr()};
    std::vector<U8> packet(bytes.begin(), bytes.end());
    if (what % 4 == 1) Fuzz::repair(packet);
    if (what % 4 == 2) {
      packet =
          Ilvo::buildIgmpPacket(packet, IpAddr(224, 0, 0, 22), {.src = senders[what >> 2 & 3]});
    }
    return packet;
  }

  void receive(const std::vector<U8>& packet) {
    const Verdict verdict = Fuzz::judge(packet, rules_, *querier_);
    const bool known = querier_->groupSm(verdict.asked) != nullptr;
    const ReceiveCounters before = Gmp::Igmp::testing::receiveCountersOf(*status_);
    querier_->doRxPkt(Mox::makePtr<Ilvo::Pkt>(std::span<const U8>(packet)));
    const ReceiveCounters moves =
        difference(Gmp::Igmp::testing::receiveCountersOf(*status_), before);
    if (moves != verdict.moves) {
      property(false,
               "counted: " + textOf(moves) + "; should have counted: " + textOf(verdict.moves));
    }
    if (!known && querier_->groupSm(verdict.asked)) invariants_.bornOfQuery(verdict.asked);
    for (const IpAddr group : verdict.reported) invariants_.reported(group);
  }

  static ReceiveCounters difference(const ReceiveCounters& a, const ReceiveCounters& b) {
    return {a.v1Queries - b.v1Queries,  a.v2Queries - b.v2Queries, a.v3Queries - b.v3Queries,
            a.v1Reports - b.v1Reports,  a.v2Reports - b.v2Reports, a.leaves - b.leaves,
            a.v3Reports - b.v3Reports,  a.errors - b.errors,       a.others - b.others,
            a.atBoundary - b.atBoundary};
  }

  // Each timer fires at its time.
  void pass(Seconds duration) {
    const Seconds until = Mox::now() + duration;
    for (int turns = 0; wheel_->nextDue() <= until; ++turns) {
      property(turns < 100000, "timers settle");
      turn(std::max(Mox::now(), wheel_->nextDue()));
    }
    turn(until);
  }
  void turn(Seconds time) {
    Mox::virtualTimeIs(time);
    wheel_->turn(time);
  }

  void requireInvariants() {
    std::string all;
    for (const std::string& breach : invariants_.breaches()) all += breach + "\n";
    property(all.empty(), all);
  }

  const Fuzz::MessageWorld messages_;
  const Fuzz::Rules rules_;
  const U32 mtu_;
  const bool yields_;
  const Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(begin);
  const Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("vlan10");
  const Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  const Ptr<Ilvo::IntfBoundaryStatus> boundary_ = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  Gmp::Igmp::testing::QuerierInvariants invariants_{wheel_};
  Ptr<QuerierSm> querier_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int stepsMost = 256;
  Fuzz::Bytes input(data, size);
  Mox::virtualTimeIs(begin);
  World world(input.u8());
  for (int steps = 0; steps < stepsMost && !input.empty(); ++steps) world.step(input);
  return 0;
}
