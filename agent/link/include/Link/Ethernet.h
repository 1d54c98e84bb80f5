// Ethernet addresses, and the IPv4 packets in frames.
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

// The contents of a frame behind its Ethernet type and VLAN tags (IEEE 802.1Q).
struct EtherPayload {
  enum Kind { ipv4, other, tooShort };  // too short: the frame ends before its headers do
  Kind kind = tooShort;
  Mox::U16 vlan = 0;  // the first that a tag names; 0 for none, as a tag may give a priority only
  std::span<const Mox::U8> ipv4Packet = {};  // with the bytes after it in the frame
};
// `typeAt` is the place of the type field, and `headerBytes` the length of the header it is in.
EtherPayload etherPayload(std::span<const Mox::U8> frame,
                          std::size_t typeAt = ethernetHeaderBytes - 2,
                          std::size_t headerBytes = ethernetHeaderBytes);

// The IPv4 packet of a frame that was received on an interface, with the bytes after it; empty if
// it has none. A frame of a VLAN belongs to another interface.
std::span<const Mox::U8> ipv4Of(std::span<const Mox::U8> frame);

// Whether the frame was sent by this machine, with an IGMP query from that address: one of our own,
// seen on its way out.
bool isQueryFrom(const MacAddr& mac, Ilvo::IpAddr addr, std::span<const Mox::U8> frame);

}  // namespace Agent
