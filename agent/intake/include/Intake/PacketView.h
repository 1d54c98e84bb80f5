// A received packet as the rules of the intake read it: what its frame and its headers say, parsed
// once. It points into the frame's bytes and copies none of them.
//
//   const std::optional<PacketView> view = PacketView::of(frame);
//   if (!view || !view->isRight()) return unchanged;  // the querier counts what is broken
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <span>

#include <Ilvo/Checksum.h>
#include <Ilvo/IpAddr.h>
#include <Ilvo/IpHdr.h>
#include <MoxBase/Types.h>

namespace Agent {

// A packet as it was received. The caller has taken off the VLAN tag, and knows the interface.
struct ReceivedFrame {
  std::span<const Mox::U8> packet;     // from the IPv4 header on; padding may follow
  std::span<const Mox::U8> macs = {};  // destination and source as the frame begins; empty where
                                       // the link has none
  // What the packet may cost before others get their turn, in sources that the querier touches. A
  // record may cost more if it is the first, and if nothing of the usual cost is used up; else
  // only sources that it does not list count.
  static constexpr std::size_t usualCost = 1024;
  std::size_t mostCost = usualCost;
};

class PacketView {
 public:
  static constexpr std::size_t macBytes = 6;
  static constexpr std::size_t messageHeaderBytes = 8;

  // Empty for what is no IGMP packet with a sound and complete IPv4 header.
  static std::optional<PacketView> of(const ReceivedFrame& frame) {
    constexpr Mox::U8 protocolIgmp = 2;
    const std::optional<Ilvo::IpHdr> ip = Ilvo::IpHdr::of(frame.packet);
    if (!ip || ip->computedChecksum() != 0 || ip->protocol() != protocolIgmp) return {};
    if (frame.packet.size() < ip->totalLen()) return {};
    return PacketView(frame, *ip);
  }

  const Ilvo::IpHdr& ip() const { return ip_; }
  // As it was received, with padding.
  std::span<const Mox::U8> received() const { return frame_.packet; }
  std::span<const Mox::U8> packet() const { return frame_.packet.first(ip_.totalLen()); }
  // The IGMP message, as long as the IPv4 header says.
  std::span<const Mox::U8> message() const { return packet().subspan(ip_.headerBytes()); }
  // The message has its first eight bytes, and its checksum is right.
  bool isRight() const {
    return message().size() >= messageHeaderBytes && Ilvo::checksum(message()) == 0;
  }
  // Of a message that is right.
  Mox::U8 type() const { return message()[0]; }
  Mox::U8 code() const { return message()[1]; }
  Ilvo::IpAddr group() const { return addrAt(4); }

  Mox::U16 u16At(std::size_t at) const {
    return static_cast<Mox::U16>(message()[at] << 8 | message()[at + 1]);
  }
  Ilvo::IpAddr addrAt(std::size_t at) const {
    const std::span<const Mox::U8> bytes = message().subspan(at, 4);
    return {bytes[0], bytes[1], bytes[2], bytes[3]};
  }

  bool hasMacs() const { return frame_.macs.size() >= 2 * macBytes; }
  bool isSentToMulticastMac() const { return (frame_.macs[0] & 0x01) != 0; }
  // As RFC 1112 6.4 maps the IP destination, or to all stations.
  bool isSentToMacOfDestination() const {
    const Mox::U32 low = ip_.dst().value() & 0x7fffffU;
    const std::array<Mox::U8, macBytes> group{1,
                                              0,
                                              0x5e,
                                              static_cast<Mox::U8>(low >> 16),
                                              static_cast<Mox::U8>(low >> 8),
                                              static_cast<Mox::U8>(low)};
    const auto to = frame_.macs.first(macBytes);
    return std::ranges::equal(to, group) ||
           std::ranges::all_of(to, [](Mox::U8 byte) { return byte == 0xff; });
  }
  std::span<const Mox::U8> sourceMac() const { return frame_.macs.subspan(macBytes, macBytes); }

 private:
  PacketView(const ReceivedFrame& frame, const Ilvo::IpHdr& ip) : frame_(frame), ip_(ip) {}

  ReceivedFrame frame_;
  Ilvo::IpHdr ip_;
};

}  // namespace Agent
