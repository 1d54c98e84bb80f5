// Ethernet addresses, and access to the IPv4 packet in a frame.
//
//   const std::span<const U8> packet = ipv4Of(frame);
//   if (!packet.empty()) querier->doRxPkt(makePtr<Ilvo::Pkt>(packet));
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>

namespace Agent {

using MacAddr = std::array<Mox::U8, 6>;

inline constexpr std::size_t ethernetHeaderBytes = 14;
inline constexpr std::size_t vlanTagBytes = 4;

inline constexpr Mox::U16 etherTypeIpv4 = 0x0800;

// The destination of frames for that group (RFC 1112 6.4).
MacAddr multicastMac(Ilvo::IpAddr group);

// The contents of a frame after its VLAN tags (IEEE 802.1Q) and Ethernet type.
struct EtherPayload {
  enum Kind { ipv4, other, tooShort };  // too short: the frame ends before its headers do
  Kind kind = tooShort;
  // Of the first tag with a VLAN; 0 when there is none, as a tag may have a priority only.
  Mox::U16 vlan = 0;
  std::span<const Mox::U8> ipv4Packet = {};  // includes the bytes after it in the frame
};
// `typeAt` is the offset of the type field, and `headerBytes` the length of the header that has it.
EtherPayload etherPayload(std::span<const Mox::U8> frame,
                          std::size_t typeAt = ethernetHeaderBytes - 2,
                          std::size_t headerBytes = ethernetHeaderBytes);

// The IPv4 packet of a frame that was received on an interface, including the bytes after it. Empty
// if the frame has none, or has a VLAN: then it belongs to another interface.
std::span<const Mox::U8> ipv4Of(std::span<const Mox::U8> frame);

// True for a frame that this machine sends and that has an IGMP query from that address: one of our
// own queries, which the packet socket received when it was sent.
bool isQueryFrom(const MacAddr& mac, Ilvo::IpAddr addr, std::span<const Mox::U8> frame);

}  // namespace Agent
