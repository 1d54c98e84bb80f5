// The two parse operations: received version 3 messages become values, and are acted on afterwards.
//
// The packet's front must stand at the IGMP message and its bytes be the message's (the receive
// path has cut off everything else). Any bytes are safe: a message that is too short gives an
// invalid value. Sources that are no unicast addresses are reported to the event log and left out.
#pragma once

#include <GmpIgmpQuerier/IgmpQuery.h>
#include <GmpIgmpQuerier/IgmpReport.h>
#include <Ilvo/Pkt.h>
#include <MoxBase/Export.h>

namespace Gmp::Igmp {

// RFC 3376 4.1. An invalid query has `validPacket` false and version igmpVersion3, all else empty.
MOX_PUBLIC IgmpQuery doIgmpMembershipQueryParse(const Ptr<Ilvo::Pkt>& pkt);

// RFC 3376 4.2. One short record makes the whole report invalid: half a report is not acted on.
MOX_PUBLIC IgmpReport doIgmpV3MembershipReportParse(const Ptr<Ilvo::Pkt>& pkt);

}  // namespace Gmp::Igmp
