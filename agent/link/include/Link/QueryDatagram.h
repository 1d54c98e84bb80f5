// An IGMP query on its way out: the IPv4 header and the Ethernet header around what a querier
// publishes (RFC 3376 4: TTL 1, precedence Internetwork Control, Router Alert).
//
//   port.send(queryFrame(link.mac, querier->ipAddr(), querier->dstGroup(),
//   querier->sendPkt()->data()));
#pragma once

#include <span>
#include <vector>

#include <Ilvo/IpAddr.h>
#include <Link/Ethernet.h>
#include <MoxBase/Types.h>

namespace Agent {

// Where a query for that group is sent: 0.0.0.0 asks for all groups, so all systems hear it.
Ilvo::IpAddr queryDestination(Ilvo::IpAddr group);

// The message as an IPv4 packet, from `src`, to where a query for `group` is sent.
std::vector<Mox::U8> queryDatagram(Ilvo::IpAddr src, Ilvo::IpAddr group,
                                   std::span<const Mox::U8> igmp);

// The same in an Ethernet frame without padding.
std::vector<Mox::U8> queryFrame(const MacAddr& srcMac, Ilvo::IpAddr src, Ilvo::IpAddr group,
                                std::span<const Mox::U8> igmp);

}  // namespace Agent
