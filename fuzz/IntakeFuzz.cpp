// Whatever frames a ring hands out, the way from the port through the intake into a querier stays
// within the limits of the intake: groups, sources, notifications, bytes sent, memory.
//
// A step is a byte with the time that passes before it, in its highest bit whether checksums are
// corrected, a length of two bytes, and as many bytes of a frame, up to 9,000.
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <Intake/Intake.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>

#include "Bytes.h"
#include "HeapBytes.h"
#include "IntakeBounds.h"
#include "Messages.h"
#include "Property.h"
#include "RingBlock.h"
#include "RxPackets.h"
#include "RxPktOracle.h"
#include "WheelInPlace.h"

namespace {

using Fuzz::property;
using Gmp::Igmp::QuerierSm;
using Ilvo::IpAddr;
using Mox::makePtr;
using Mox::Ptr;
using Mox::Seconds;
using Mox::U8;

constexpr Seconds begin = 1000.0;
constexpr std::size_t mostFrameBytes = 9000;
constexpr std::size_t etherHeaderBytes = 14;
constexpr Mox::U32 mostGroups = 40;
constexpr Mox::U32 mostSources = 400;
// With what they have pending, and tables that have grown to hold them.
constexpr std::size_t mostBytes = mostGroups * 2048 + mostSources * 512 + 65536;

class World final : private Agent::IntakeWatcher {
 public:
  World() {
    srand48(1);
    querierConfig_->querierVersionIs(Gmp::Igmp::igmpVersion3);
    config_->maxGroupsIs(mostGroups);
    config_->maxGroupSourcesIs(64);
    config_->maxSourcesIs(mostSources);
    config_->maxQueryBurstIs(100);
    process_.config->maxProcessGroupsIs(45);
    process_.config->maxProcessSourcesIs(420);
    intake_.linkIs(std::array<U8, 6>{2, 0, 0, 0, 0, 5}, Agent::PrefixList("10.0.0.5/24"));
    intake_.querierIs(querier_);
  }
  ~World() { intake_.querierIs(nullptr); }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void step(Fuzz::Bytes& input) {
    const U8 how = input.u8();
    pass((how & 0x7f) / 4.0);
    const std::size_t length = std::size_t{input.u8()} << 8 | input.u8();
    const auto bytes = input.take(std::min(length, mostFrameBytes));
    std::vector<U8> frame(bytes.begin(), bytes.end());
    if ((how & 0x80) != 0) repair(frame);
    receive(frame);
    for (const std::string& breach : bounds_.breaches()) property(false, breach);
    property(Fuzz::heapBytes() < bytesBefore_ + mostBytes, "memory stays within the limits");
  }

 private:
  class Output final : public QuerierSm::NotifieeConst {
   public:
    Output(const Ptr<QuerierSm>& querier, Agent::IntakeBounds& bounds)
        : NotifieeConst(querier), bounds_(bounds) {}
    void onWritableCount() override {
      bounds_.sends(notifier()->dstGroup(), notifier()->sendPkt()->offsetBytes());
    }

   private:
    Agent::IntakeBounds& bounds_;
  };

  static void repair(std::vector<U8>& frame) {
    if (frame.size() <= etherHeaderBytes) return;
    std::vector<U8> packet(frame.begin() + etherHeaderBytes, frame.end());
    Fuzz::repair(packet);
    std::copy(packet.begin(), packet.end(), frame.begin() + etherHeaderBytes);
  }

  void receive(const std::vector<U8>& frame) {
    Agent::PortCounts counts;
    const auto received = Agent::rxPacketOf({.bytes = frame}, counts);
    if (!received) return;
    bounds_.receives(received->packet.size());
    const auto macs = frame.size() < 12 ? std::span<const U8>() : received->frame.first(12);
    std::vector<U8> packet(received->packet.begin(), received->packet.end());
    while (!packet.empty()) {
      const Agent::IntakeVerdict verdict = intake_.judge({.packet = packet, .macs = macs});
      property(!verdict.isRefused || verdict.rule.has_value(), "a refusal has a reason");
      property(verdict.rest.size() < packet.size(), "a rest is a part of its packet");
      if (!verdict.isRefused) querier_->doRxPkt(makePtr<Ilvo::Pkt>(verdict.packet));
      packet.assign(verdict.rest.begin(), verdict.rest.end());
    }
    bounds_.handled();
  }

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
  void onIntakeEvent(const Agent::IntakeEvent& event) override {
    property(event.count > 0, "an event is of a counted packet");
  }

  const Fuzz::WheelInPlace wheel_{begin};
  const Fuzz::MessageWorld messages_;
  const Ptr<Agent::IntakeConfig> config_ = makePtr<Agent::IntakeConfig>("eth0");
  const Ptr<Gmp::Igmp::QuerierConfig> querierConfig_ = Gmp::Igmp::querierConfigFactory("eth0");
  const Ptr<Gmp::Igmp::QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  const Ptr<QuerierSm> querier_ =
      Gmp::Igmp::querierSmFactory(querierConfig_, status_, IpAddr(10, 0, 0, 5), 1500, 0,
                                  wheel_.ptr(), wheel_.ptr(), wheel_.ptr(), false);
  Agent::IntakeProcess process_;
  Agent::Intake intake_{process_, config_, makePtr<Agent::IntakeStatus>("eth0"), status_, *this};
  Agent::IntakeBounds bounds_{config_, process_.config, querierConfig_, status_};
  const Output output_{querier_, bounds_};
  const std::size_t bytesBefore_ = Fuzz::heapBytes();
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int stepsMost = 256;
  Fuzz::Bytes input(data, size);
  Mox::virtualTimeIs(begin);
  World world;
  for (int steps = 0; steps < stepsMost && !input.empty(); ++steps) world.step(input);
  return 0;
}
