// An IGMP query on its way out: the IPv4 header around the message that a querier publishes (RFC
// 3376 4: TTL 1, precedence Internetwork Control, Router Alert).
//
//   port.send(queryDatagram(querier->ipAddr(), querier->dstGroup(), querier->sendPkt()->data()));
#pragma once

#include <span>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>

namespace Agent {

// Where a query for that group is sent: all systems for 0.0.0.0, which asks for all groups.
Ilvo::IpAddr queryDestination(Ilvo::IpAddr group);

// The message as an IPv4 packet, from `src`, to where a query for `group` is sent.
std::vector<Mox::U8> queryDatagram(Ilvo::IpAddr src, Ilvo::IpAddr group,
                                   std::span<const Mox::U8> igmp);

// Whether the IPv4 packet is an IGMP query from one of these addresses.
bool isQueryFrom(std::span<const Ilvo::IpAddr> addresses, std::span<const Mox::U8> packet);

}  // namespace Agent
