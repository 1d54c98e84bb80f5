// What the agent knows of Ethernet: addresses, and which received frames carry an IPv4 packet for
// it.
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

// Where frames for that group go (RFC 1112 6.4).
MacAddr multicastMac(Ilvo::IpAddr group);

// The IPv4 packet with what may follow it in the frame; empty if the frame carries none. A tag that
// gives a priority and no VLAN is looked through; a frame of a VLAN belongs to another interface.
std::span<const Mox::U8> ipv4Of(std::span<const Mox::U8> frame);

// The frame left this machine, with an IGMP query from that address: our own, heard on its way out.
bool isQueryFrom(const MacAddr& mac, Ilvo::IpAddr addr, std::span<const Mox::U8> frame);

}  // namespace Agent
