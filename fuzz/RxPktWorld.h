// A querier in virtual time that receives the packets of an input; what the fuzz targets of the
// receive path share. A target says how a packet is received and what is required of it.
//
// The first byte of an input is the setup. Steps follow: a byte with the operation (lowest two
// bits) and the sender (next two), a byte with the time that passes before it and, except for a
// restart, a byte with a length and as many bytes. These are a packet as it is, a packet whose
// checksums are corrected, or an IGMP message that is put into a correct packet. A restart puts
// another querier on the same status.
//
//   World world(input.u8());  // derived from RxPktWorld
//   world.steps(input, 24);
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <vector>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierTestSupport/QuerierInvariants.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Mox/ActivityClock.h>

#include "Bytes.h"
#include "Messages.h"
#include "Property.h"
#include "RxPktOracle.h"
#include "WheelInPlace.h"

namespace Fuzz {

class RxPktWorld {
 public:
  // With traces, which take long to format, those of the machines are in half of the worlds.
  explicit RxPktWorld(Mox::U8 setup, bool traces)
      : rules_{.configured = static_cast<Gmp::Igmp::IgmpVersion>(3 - std::min(setup & 3, 2)),
               .boundary = (setup & 0x08) != 0},
        mtu_(std::array<Mox::U32, 4>{1500, 48, 0, 576}[setup >> 4 & 3]),
        yields_((setup & 0x40) != 0),
        messages_(traces) {
    srand48(1);
    if (traces && (setup & 0x80) != 0) Gmp::Igmp::machineTrace->facilityLevelIs(8);
    config_->querierVersionIs(rules_.configured);
    boundary_->boundaryIs(*Ilvo::IpGenPrefix::parse("239.255.0.0/16"), true);
    start();
  }
  virtual ~RxPktWorld() {
    invariants_.release();
    Gmp::Igmp::machineTrace->facilityLevelIs(Mox::TraceHandle::off);
  }
  RxPktWorld(const RxPktWorld&) = delete;
  RxPktWorld& operator=(const RxPktWorld&) = delete;

  void steps(Bytes& input, int most) {
    for (int steps = 0; steps < most && !input.empty(); ++steps) step(input);
    requireInvariants();
  }

  static constexpr Mox::Seconds begin = 1000.0;

 protected:
  // The packet is received, and nothing else happens.
  virtual void receive(const std::vector<Mox::U8>& packet) = 0;

  void requireInvariants() {
    std::string all;
    for (const std::string& breach : invariants_.breaches()) all += breach + "\n";
    property(all.empty(), all);
  }

  Gmp::Igmp::QuerierSm& querier() { return *querier_; }
  const Gmp::Igmp::QuerierStatus& status() const { return *status_; }
  Gmp::Igmp::testing::QuerierInvariants& invariants() { return invariants_; }
  const Rules& rules() const { return rules_; }

 private:
  void step(Bytes& input) {
    const Mox::U8 what = input.u8();
    pass(waitOf(input.u8()));
    if (what % 4 == 3) {
      requireInvariants();
      invariants_.release();
      querier_ = nullptr;
      start();
    } else {
      receive(packetOf(what, input.take(input.u8())));
    }
  }

  void start() {
    querier_ = Gmp::Igmp::querierSmFactory(config_, status_, Ilvo::IpAddr(10, 0, 0, 5), mtu_, 0,
                                           wheel_.ptr(), wheel_.ptr(), wheel_.ptr(), yields_);
    if (rules_.boundary) querier_->mcastBoundaryIntfStatusIs(boundary_);
    invariants_.watch(querier_);
  }

  static std::vector<Mox::U8> packetOf(Mox::U8 what, std::span<const Mox::U8> bytes) {
    static constexpr std::array senders{Ilvo::IpAddr(10, 0, 0, 77), Ilvo::IpAddr(10, 0, 0, 2),
                                        Ilvo::IpAddr(10, 0, 0, 9), Ilvo::IpAddr()};
    std::vector<Mox::U8> packet(bytes.begin(), bytes.end());
    if (what % 4 == 1) repair(packet);
    if (what % 4 == 2) {
      packet = Ilvo::buildIgmpPacket(packet, Ilvo::IpAddr(224, 0, 0, 22),
                                     {.src = senders[what >> 2 & 3]});
    }
    return packet;
  }

  // Short waits in eighths of a second, so that timers and packets coincide; long ones up to 640 s.
  static Mox::Seconds waitOf(Mox::U8 code) { return code < 128 ? code / 8.0 : (code - 127) * 5.0; }

  // Each timer fires at its time.
  void pass(Mox::Seconds duration) {
    const Mox::Seconds until = Mox::now() + duration;
    for (int turns = 0; wheel_->nextDue() <= until; ++turns) {
      property(turns < 100000, "timers settle");
      turn(std::max(Mox::now(), wheel_->nextDue()));
    }
    turn(until);
  }
  void turn(Mox::Seconds time) {
    Mox::virtualTimeIs(time);
    wheel_->turn(time);
  }

  const WheelInPlace wheel_{begin};
  const Rules rules_;
  const Mox::U32 mtu_;
  const bool yields_;
  const MessageWorld messages_;
  const Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("vlan10");
  const Mox::Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  const Mox::Ptr<Ilvo::IntfBoundaryStatus> boundary_ = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  Gmp::Igmp::testing::QuerierInvariants invariants_{wheel_.ptr()};
  Mox::Ptr<Gmp::Igmp::QuerierSm> querier_;
};

}  // namespace Fuzz
