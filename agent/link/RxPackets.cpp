#include "RxPackets.h"

#include <Link/Ethernet.h>

namespace Agent {

using Mox::U16;
using Mox::U8;

namespace {

constexpr std::size_t flagsAt = 6;
constexpr std::size_t ipv4HeaderBytes = 20;
constexpr U16 moreFragmentsOrOffset = 0x3fff;  // RFC 791 3.1

bool isFragment(std::span<const U8> packet) {
  const auto flags = static_cast<U16>(packet[flagsAt] << 8 | packet[flagsAt + 1]);
  return (flags & moreFragmentsOrOffset) != 0;
}

}  // namespace

std::optional<RxPacket> rxPacketOf(const RingFrame& frame, PortCounts& counts) {
  const EtherPayload payload = etherPayload(frame.bytes);
  if (frame.vlan != 0 || payload.vlan != 0) {
    ++counts.otherVlans;
  } else if (frame.cut || payload.ipv4Packet.size() < ipv4HeaderBytes) {
    ++counts.unparsable;
  } else {
    if (isFragment(payload.ipv4Packet)) ++counts.fragments;
    return RxPacket{.frame = frame.bytes, .packet = payload.ipv4Packet, .outgoing = frame.outgoing};
  }
  return std::nullopt;
}

}  // namespace Agent
