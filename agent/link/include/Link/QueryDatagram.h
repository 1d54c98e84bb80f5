// An IGMP query as it is sent: the IPv4 header and the Ethernet header around the message that a
// querier publishes (RFC 3376 4: TTL 1, precedence Internetwork Control, Router Alert).
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

// The destination of a query for `group`. A query for all groups (0.0.0.0) goes to all systems.
Ilvo::IpAddr queryDestination(Ilvo::IpAddr group);

// The message as an IPv4 packet from `src` to the destination of a query for `group`.
std::vector<Mox::U8> queryDatagram(Ilvo::IpAddr src, Ilvo::IpAddr group,
                                   std::span<const Mox::U8> igmp);

// The same in an Ethernet frame without padding.
std::vector<Mox::U8> queryFrame(const MacAddr& srcMac, Ilvo::IpAddr src, Ilvo::IpAddr group,
                                std::span<const Mox::U8> igmp);

}  // namespace Agent
