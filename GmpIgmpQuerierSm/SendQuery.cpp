#include "SendQuery.h"

#include <algorithm>
#include <utility>

#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <Ilvo/IgmpHdr.h>
#include <Ilvo/PktManager.h>
#include <MoxBase/Fatal.h>

namespace Gmp::Igmp {

using Ilvo::IgmpV12Hdr;
using Ilvo::IgmpV3QueryHdr;
using Ilvo::Pkt;
using Mox::trace;

namespace {

// Null, with a trace, when there is none.
Ptr<Pkt> packetFor(const QuerierSm& querier, size_t bytes) {
  Ptr<Pkt> pkt = Ilvo::pktManager().pkt(bytes);
  if (pkt) {
    pkt->reserveHead(bytes);
  } else {
    trace<3>(igmpPacketTrace, "Packet allocation failed for querier ", querier.name());
  }
  return pkt;
}

// Other routers lower their timers to the last member query time when they receive a specific
// query, unless the S flag says that hosts have confirmed the group meanwhile (RFC 3376 6.6.3.1). A
// general query, which has no group, never sets it.
bool suppressFor(const QuerierSm& querier, const QuerierGroupSm* group) {
  const QuerierConfig& config = *querier.querierConfig();
  return group != nullptr && group->membershipTimerRemaining() > config.lastMemberQueryTime();
}

void fillV3(const QuerierSm& querier, IgmpV3QueryHdr& hdr, double maxResponseSeconds, IpAddr group,
            bool sFlag) {
  hdr.typeIs(Ilvo::igmpMembershipQuery);
  hdr.maxResponseSecondsIs(maxResponseSeconds);
  hdr.groupAddressIs(group);
  hdr.reservedIs(0);
  hdr.sFlagIs(sFlag);
  hdr.qrvIs(querier.querierConfig()->robustness());
  hdr.queryIntervalSecondsIs(querier.querierStatus()->queryInterval());
  hdr.numSourcesIs(queryNoSources);
  hdr.checksumIs(queryNoChecksum);
}

void fillV12(IgmpV12Hdr& hdr, IgmpVersion version, double maxResponseSeconds, IpAddr group) {
  hdr.typeIs(Ilvo::igmpMembershipQuery);
  if (version == igmpVersion2) {
    hdr.maxResponseSecondsIs(maxResponseSeconds);
  } else {
    hdr.codeIs(0);
  }
  hdr.groupAddressIs(group);
  hdr.checksumIs(queryNoChecksum);
  hdr.checksumUpdate();
}

void publish(QuerierSm& querier, Ptr<Pkt> pkt) {
  querier.sendPktIs(std::move(pkt));
  querier.writableCountInc(1);
}

void countSent(QuerierStatus& status, IgmpVersion version) {
  switch (version) {
    case igmpVersion1: status.v1QueriesSentInc(1); return;
    case igmpVersion2: status.v2QueriesSentInc(1); return;
    case igmpVersion3: status.v3QueriesSentInc(1); return;
    case igmpVersionUnknown: return;
  }
}

// With an MTU that leaves no room for one source a list would never end: each packet gets one
// source then.
size_t sourcesPerPacket(U32 mtu, size_t sources) {
  constexpr U32 headers =
      40;  // an IP header with Router Alert, the query itself, and a word to spare
  constexpr size_t countFieldMax = 0xffff;
  if (mtu == 0) return std::min(sources, countFieldMax);
  const size_t fit = mtu < headers + 4 ? 1 : static_cast<U16>((mtu - headers) / 4);
  return std::min(sources, std::max<size_t>(fit, 1));
}

}  // namespace

void sendQuery(QuerierSm* querier, double maxResponseSeconds, IpAddr group) {
  const Ptr<QuerierSm> alive(querier);
  const Ptr<QuerierStatus> status = querier->querierStatus();
  if (status->state() != QuerierStatus::querierStateQuerier) {
    trace<6>(igmpPacketTrace, "Don't send query because we are not the querier");
    return;
  }
  const bool general = group.isZero();
  const Ptr<QuerierGroupSm> groupSm = general ? nullptr : querier->groupSm(group);
  querier->dstGroupIs(group);
  const IgmpVersion version =
      general ? status->querierVersion() : groupSm->groupStatus()->compatibilityMode();
  const bool v3 = version == igmpVersion3;
  Ptr<Pkt> pkt = packetFor(*querier, v3 ? IgmpV3QueryHdr::bytes : IgmpV12Hdr::bytes);
  if (!pkt) return;
  if (v3) {
    IgmpV3QueryHdr hdr(*pkt);
    fillV3(*querier, hdr, maxResponseSeconds, group, suppressFor(*querier, groupSm.get()));
    hdr.checksumUpdate(IgmpV3QueryHdr::bytes);
    trace<6>(igmpPacketTrace, "Querier ", querier->name(), " sending query from ",
             querier->ipAddr(), " with", hdr.text());
  } else {
    IgmpV12Hdr hdr(*pkt);
    fillV12(hdr, version, maxResponseSeconds, group);
    trace<6>(igmpPacketTrace, "Querier ", querier->name(), " sending query from ",
             querier->ipAddr(), " with", hdr.text());
  }
  trace<6>(igmpPacketTrace, "Query packet created for vlan ", querier->name());
  publish(*querier, std::move(pkt));
  countSent(*status, version);
}

void sendGeneralQuery(QuerierSm* querier) {
  trace<8>(igmpPacketTrace, "void Gmp::Igmp::sendGeneralQuery(Gmp::Igmp::QuerierSm*)");
  const Ptr<QuerierSm> alive(querier);
  Seconds maxResponse = querier->querierConfig()->queryResponseInterval();
  if (!querier->initialQuerySent()) {
    maxResponse = 0.5 * querier->querierStatus()->queryResponseInterval();
    querier->initialQuerySentIs(true);
  }
  sendQuery(querier, maxResponse, IpAddr::ipAddrZero());
}

void sendGroupSpecificQuery(QuerierSm* querier, IpAddr group) {
  trace<8>(igmpPacketTrace,
           "void Gmp::Igmp::sendGroupSpecificQuery(Gmp::Igmp::QuerierSm*, Ilvo::IpAddr)");
  const Ptr<QuerierSm> alive(querier);
  const Ptr<QuerierGroupSm> groupSm = querier->groupSm(group);
  if (!groupSm || groupSm->rexmitGroupQuery() == 0) return;
  sendQuery(querier, querier->querierConfig()->lastMemberQueryInterval(), group);
  // The transmission may have brought in a report that cancelled the count.
  if (groupSm->rexmitGroupQuery() > 0) groupSm->rexmitGroupQueryDec(1);
  if (groupSm->groupStatus()->compatibilityMode() == igmpVersion3) {
    querier->querierStatus()->v3GSQueriesSentInc(1);
  }
}

bool sendGroupAndSourceSpecificQueryHelper(QuerierSm* querier, IpAddr group,
                                           std::vector<IpAddr>& sources, bool sFlag) {
  const Ptr<QuerierSm> alive(querier);
  const size_t n = sourcesPerPacket(querier->mtu(), sources.size());
  querier->dstGroupIs(group);
  const size_t bytes = IgmpV3QueryHdr::bytes + 4 * n;
  Ptr<Pkt> pkt = packetFor(*querier, bytes);
  if (!pkt) return false;
  IgmpV3QueryHdr hdr(*pkt);
  fillV3(*querier, hdr, querier->querierConfig()->lastMemberQueryInterval(), group, sFlag);
  for (size_t i = 0; i < n; ++i) {
    hdr.sourceAppend(sources.back());
    sources.pop_back();
  }
  hdr.checksumUpdate(bytes);
  trace<6>(igmpPacketTrace, "Querier ", querier->name(),
           sFlag ? " sending group and source specific query with SFlag set from "
                 : " sending group and source specific query with SFlag not set from ",
           querier->ipAddr(), hdr.text());
  publish(*querier, std::move(pkt));
  trace<6>(igmpPacketTrace, "Sent group and source specific query packet for vlan ",
           querier->name());
  if (n == 0) {
    querier->querierStatus()->v3GSQueriesSentInc(1);
  } else {
    querier->querierStatus()->v3GSSQueriesSentInc(1);
  }
  return true;
}

void requireOwnAddress(const QuerierSm& querier, Mox::Place where) {
  Mox::fatalUnless(!querier.ipAddr().isZero(), machineModelFile,
                   "q->ipAddr() != Ilvo::IpAddr::ipAddrZero()", where);
}

void sendGroupAndSourceSpecificQuery(QuerierSm* querier, IpAddr group,
                                     std::vector<IpAddr>& sFlagClear,
                                     std::vector<IpAddr>& sFlagSet) {
  const Ptr<QuerierSm> alive(querier);
  requireOwnAddress(*querier);
  // Without a packet, the rest is sent with the next retransmission, if one is pending.
  while (!sFlagClear.empty()) {
    if (!sendGroupAndSourceSpecificQueryHelper(querier, group, sFlagClear, false)) break;
  }
  while (!sFlagSet.empty()) {
    if (!sendGroupAndSourceSpecificQueryHelper(querier, group, sFlagSet, true)) break;
  }
}

}  // namespace Gmp::Igmp
