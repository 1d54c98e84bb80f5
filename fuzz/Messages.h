// The surroundings of both parse operations: their messages and traces are formatted, since hostile
// values must not break that either, and then discarded.
//
//   const MessageWorld world;
//   const Ptr<Pkt> pkt = messageOf(Ilvo::buildV3Query());
#pragma once

#include <vector>

#include <GmpIgmpQuerier/ModelLogs.h>
#include <Ilvo/Pkt.h>
#include <Mox/EventLog.h>
#include <Mox/Trace.h>

namespace Fuzz {

class MessageWorld {
 public:
  explicit MessageWorld(bool traces = true) {
    Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
    Mox::traceSinkIs([](const Mox::TraceLine&) {});
    if (traces) Gmp::Igmp::igmpPacketTrace->facilityLevelIs(8);
  }
  ~MessageWorld() {
    Gmp::Igmp::igmpPacketTrace->facilityLevelIs(Mox::TraceHandle::off);
    Mox::traceSinkIs({});
    Mox::eventLogSinkIs({});
  }
  MessageWorld(const MessageWorld&) = delete;
  MessageWorld& operator=(const MessageWorld&) = delete;
};

// The IGMP message of a packet that IlvoTestSupport/IgmpPacketBuilder.h has made.
inline Mox::Ptr<Ilvo::Pkt> messageOf(const std::vector<Mox::U8>& packet) {
  constexpr std::size_t headerWithRouterAlert = 24;
  Mox::Ptr<Ilvo::Pkt> pkt = Mox::makePtr<Ilvo::Pkt>(std::span<const Mox::U8>(packet));
  pkt->frontOffsetInc(headerWithRouterAlert);
  return pkt;
}

}  // namespace Fuzz
