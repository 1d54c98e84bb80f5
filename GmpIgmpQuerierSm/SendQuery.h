// The query builders (RFC 3376 4.1, 6.6; RFC 2236 2): each makes one IGMP message and publishes it
// as the querier's sendPkt, dstGroup and writableCount. The host adds the IP header.
#pragma once

#include <vector>

#include <GmpIgmpQuerier/Types.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <MoxBase/Place.h>

namespace Gmp::Igmp {

// A query without sources in the version in effect, for the group, or, with 0.0.0.0, a general one.
// Only the querier sends.
void sendQuery(QuerierSm* querier, double maxResponseSeconds, IpAddr group);

// The general query that is due now.
void sendGeneralQuery(QuerierSm* querier);

// One group-specific query if the group has pending ones; one less is pending then.
void sendGroupSpecificQuery(QuerierSm* querier, IpAddr group);

// One group-and-source-specific query with as many of the sources as fit, from the back of the
// list, which loses them. False when no packet could be had: nothing is sent or removed then.
bool sendGroupAndSourceSpecificQueryHelper(QuerierSm* querier, IpAddr group,
                                           std::vector<IpAddr>& sources, bool sFlag);

// Fatal when the querier has no address: other routers compare the sender's address with theirs.
void requireOwnAddress(const QuerierSm& querier, Mox::Place where = Mox::Place::here());

// As many of these queries as the two lists need: first those with the S flag clear.
void sendGroupAndSourceSpecificQuery(QuerierSm* querier, IpAddr group,
                                     std::vector<IpAddr>& sFlagClear,
                                     std::vector<IpAddr>& sFlagSet);

}  // namespace Gmp::Igmp
