// Ethernet addresses, and access to the IPv4 packet in a frame.
//
//   const EtherPayload payload = etherPayload(frame);
//   if (payload.vlan == 0) use(payload.ipv4Packet);
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include <MoxBase/Types.h>

namespace Agent {

using MacAddr = std::array<Mox::U8, 6>;

inline constexpr std::size_t ethernetHeaderBytes = 14;
inline constexpr std::size_t vlanTagBytes = 4;

// The contents of a frame behind its Ethernet type and VLAN tags (IEEE 802.1Q).
struct EtherPayload {
  enum Kind { ipv4, other, tooShort };  // too short: the frame ends before its headers do
  Kind kind = tooShort;
  // Of the first tag with a VLAN; 0 when there is none, as a tag may have a priority only.
  Mox::U16 vlan = 0;
  std::span<const Mox::U8> ipv4Packet = {};  // includes the bytes after it in the frame
};
// `typeAt` is the place of the type field, and `headerBytes` the length of the header that it is
// in.
EtherPayload etherPayload(std::span<const Mox::U8> frame,
                          std::size_t typeAt = ethernetHeaderBytes - 2,
                          std::size_t headerBytes = ethernetHeaderBytes);

}  // namespace Agent
