// Whatever blocks of frames a ring hands out, the way from the port through the intake into a
// querier stays within the limits of the intake: groups, sources, notifications, bytes sent,
// memory.
//
// The first byte chooses the limits. A step is a byte, a length of two bytes, and as many bytes of
// a frame, up to 9,000. The byte has the time that passes before it, in its highest bit whether
// checksums are corrected, and in the next whether the frame that follows is of the same block.
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <AgentTestSupport/TestLink.h>
#include <Events/Event.h>
#include <Intake/Intake.h>
#include <Link/QueryDatagram.h>
#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>

#include "Bytes.h"
#include "HeapBytes.h"
#include "IntakeBounds.h"
#include "InterfaceQuerier.h"
#include "Messages.h"
#include "Property.h"
#include "RingBlock.h"
#include "RxPackets.h"
#include "RxPktOracle.h"
#include "WheelInPlace.h"

namespace {

using Fuzz::property;
using Ilvo::IpAddr;
using Mox::makePtr;
using Mox::Ptr;
using Mox::Seconds;
using Mox::U8;

constexpr Seconds begin = 1000.0;
constexpr std::size_t mostFrameBytes = 9000;
constexpr std::size_t etherHeaderBytes = 14;
constexpr Mox::U32 mostGroups = 40;
// Few, which are reached soon; or so many that a report of some bytes costs too much at once.
struct SourceLimits {
  Mox::U32 ofGroup, ofInterface, ofProcess;
};
constexpr std::array sourceLimits{SourceLimits{64, 400, 420}, SourceLimits{600, 3000, 3100}};
// With what they have pending, tables that have grown to hold them, and the packets that wait.
constexpr std::size_t mostBytes(const SourceLimits& limits) {
  return mostGroups * 2048 + limits.ofInterface * 512 + 65536 +
         Agent::DeferredPackets::mostPackets * mostFrameBytes;
}

class NoEvents final : public Agent::EventSink {
 public:
  void event(const Agent::Event& event) override {
    property(event.kind != Agent::Event::intake || event.count > 0,
             "an event is of a counted packet");
  }
};

class World {
 public:
  explicit World(const SourceLimits& limits) : mostBytes_(mostBytes(limits)) {
    srand48(1);
    querierConfig_->querierVersionIs(Gmp::Igmp::igmpVersion3);
    config_->maxGroupsIs(mostGroups);
    config_->maxGroupSourcesIs(limits.ofGroup);
    config_->maxSourcesIs(limits.ofInterface);
    config_->maxQueryBurstIs(100);
    process_.config->maxProcessGroupsIs(45);
    process_.config->maxProcessSourcesIs(limits.ofProcess);
    querier_.linkIs(&link_);
    pass(0);
    bytesBefore_ = Fuzz::heapBytes();
  }

  void step(Fuzz::Bytes& input) {
    const U8 how = input.u8();
    const bool isLastOfBlock = (how & 0x40) == 0;
    if (isLastOfBlock) pass((how & 0x3f) / 2.0);
    const std::size_t length = std::size_t{input.u8()} << 8 | input.u8();
    const auto bytes = input.take(std::min(length, mostFrameBytes));
    std::vector<U8> frame(bytes.begin(), bytes.end());
    if ((how & 0x80) != 0) repair(frame);
    receive(frame);
    if (isLastOfBlock) endBlock();
  }
  void endBlock() {
    receiver_->rxBatchEnd();
    bounds_.handled();
    turn(Mox::now());
    for (const std::string& breach : bounds_.breaches()) property(false, breach);
    property(Fuzz::heapBytes() < bytesBefore_ + mostBytes_, "memory stays within the limits");
  }

 private:
  struct Port final : Agent::FramePort {
    explicit Port(Agent::IntakeBounds& ofAll) : bounds(ofAll) {}
    std::error_code send(std::span<const U8> packet) override {
      constexpr std::size_t headerBytes = 24;
      const auto dst = packet.subspan(16, 4);
      const IpAddr group(dst[0], dst[1], dst[2], dst[3]);
      bounds.sends(group == Agent::queryDestination(IpAddr()) ? IpAddr() : group,
                   packet.size() - headerBytes);
      return {};
    }
    Agent::PortCounts counts() override { return {}; }
    Agent::IntakeBounds& bounds;
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
    receiver_->rxPacket(*received);
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
    pending_.flush();
  }

  const Fuzz::WheelInPlace wheel_{begin};
  const Fuzz::MessageWorld messages_;
  const Agent::Link link_ = Agent::runningLink(IpAddr(10, 0, 0, 5), {2, 0, 0, 0, 0, 5});
  const Ptr<Agent::IntakeConfig> config_ = makePtr<Agent::IntakeConfig>("eth0");
  const Ptr<Gmp::Igmp::QuerierConfig> querierConfig_ = Gmp::Igmp::querierConfigFactory("eth0");
  NoEvents events_;
  Agent::IntakeProcess process_;
  Agent::ReceivedBatch batch_;
  Agent::StatusWatcher::Pending pending_;
  Agent::FrameReceiver* receiver_ = nullptr;
  const Agent::InterfaceQuerier::Services services_{
      .wheel = wheel_.ptr(),
      .openPort =
          [this](const Agent::Link&, Agent::FrameReceiver& receiver) {
            receiver_ = &receiver;
            return std::make_unique<Port>(bounds_);
          },
      .sink = events_,
      .process = process_,
      .batch = batch_,
      .pending = &pending_};
  Agent::InterfaceQuerier querier_{services_,
                                   {.name = "eth0", .config = querierConfig_, .intake = config_}};
  Agent::IntakeBounds bounds_{config_, process_.config, querierConfig_, querier_.status()};
  const std::size_t mostBytes_;
  std::size_t bytesBefore_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int stepsMost = 256;
  Fuzz::Bytes input(data, size);
  Mox::virtualTimeIs(begin);
  World world(sourceLimits[input.u8() & 1]);
  for (int steps = 0; steps < stepsMost && !input.empty(); ++steps) world.step(input);
  world.endBlock();
  return 0;
}
