// The receive path: every packet of the interface is validated, counted and dispatched here. A
// dropped packet changes nothing but `pktSrc` and the counters.
#include <algorithm>

#include <GmpIgmpQuerier/IgmpParse.h>
#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Ilvo/IgmpHdr.h>
#include <Mox/ActivityClock.h>
#include <MoxBase/Fatal.h>

namespace Gmp::Igmp {

using Ilvo::IgmpCommonHdr;
using Ilvo::IpHdr;
using Ilvo::Pkt;
using Mox::trace;

namespace {

// The traces of this file name the one entry point, whichever step writes them.
Mox::TraceAt atRxPkt(unsigned line = __builtin_LINE()) {
  return {igmpPacketTrace, {"doRxPkt", line}};
}

// Prints as the packet's length: its address would differ from run to run.
struct PktText {
  size_t bytes;
};
void appendText(std::string& out, PktText text) {
  out += "Pkt[" + std::to_string(text.bytes) + "]";
}

// Also of bytes that are no IP packet, when there are enough of them.
IpAddr sourceOf(const Pkt& pkt) { return pkt.has(16) ? pkt.ipAddr(12) : IpAddr(); }

// The group if this is an IGMP message: a guess, only good for prefetching.
IpAddr likelyGroup(const Pkt& pkt) {
  const size_t at = (pkt.has(1) ? (pkt.u8(0) & 0x0f) * 4u : 0u) + 4;
  return pkt.has(at + 4) ? pkt.ipAddr(at) : IpAddr();
}

bool isLearnable(IpAddr group) { return group.isMulticast() && !group.isReservedMulticast(); }

// Printed in hexadecimal.
struct HexByte {
  U8 value;
};
void appendText(std::string& out, HexByte byte) {
  constexpr const char* digits = "0123456789abcdef";
  if (byte.value >= 0x10) out += digits[byte.value >> 4];
  out += digits[byte.value & 0x0f];
}

}  // namespace

void QuerierSm::doRxPkt(const Ptr<Pkt>& pkt) {
  Mox::fatalUnless(initialized_, machineModelFile, "initialized( )");
  Mox::fatalUnless(static_cast<bool>(pkt), machineModelFile, "pkt");
  const Ptr<QuerierSm> alive(this);
  const Mox::StandingClock oneTime;
  trace<8>(atRxPkt(), *this, "::", "doRxPkt", "( ", PktText{pkt->offsetBytes()}, " )");
  pktSrcIs(sourceOf(*pkt));
  IpHdr ip;
  if (acceptIp(pkt, ip)) dispatchIgmp(ip, pkt);
}

void QuerierSm::prefetchRxPkt(const Pkt& pkt) { lookahead_.prefetch(likelyGroup(pkt)); }

bool QuerierSm::acceptIp(const Ptr<Pkt>& pkt, IpHdr& ip) {
  const std::optional<IpHdr> header = IpHdr::of(*pkt);
  if (!header || header->computedChecksum() != 0) {
    trace<6>(atRxPkt(), "Dropping IP packet with bad header checksum");
    dropPacket();
    return false;
  }
  ip = *header;
  if (pkt->offsetBytes() < ip.totalLen()) {
    trace<6>(atRxPkt(), "Dropping IP packet with too few bytes (have ", pkt->offsetBytes(),
             " want ", ip.totalLen(), ")");
    dropPacket();
    return false;
  }
  pkt->frontOffsetInc(ip.headerBytes());
  if (pkt->offsetBytes() > ip.payloadLen()) {
    trace<6>(atRxPkt(), "Truncating pkt to ip payload len: ", ip.payloadLen(), "frm ",
             pkt->offsetBytes());
    pkt->endOffsetDec(pkt->offsetBytes() - ip.payloadLen());
  }
  if (ip.protocol() != Ilvo::igmpIpProtocol) {
    trace<3>(atRxPkt(), "Dropping non-IGMP protocol ", Mox::RawByte{ip.protocol()});
    querierStatus_->otherPacketReceivedInc(1);
    return false;
  }
  if (!pkt->has(IgmpCommonHdr::bytes)) {
    trace<6>(atRxPkt(), "Dropping too-small IGMPv2 message on ", name());
    dropPacket();
    return false;
  }
  if (IgmpCommonHdr(*pkt).computedChecksum(ip.payloadLen()) != 0) {
    trace<6>(atRxPkt(), "Dropping packet with bad IGMP checksum on ", name());
    dropPacket();
    return false;
  }
  return true;
}

void QuerierSm::dispatchIgmp(const IpHdr& ip, const Ptr<Pkt>& pkt) {
  const IgmpCommonHdr igmp(*pkt);
  const U8 type = igmp.messageType();
  trace<6>(atRxPkt(), name(), " handling valid igmp packet of type ", type);
  const RxIgmp rx{ip, pkt, igmp.groupAddress()};
  switch (type) {
    case Ilvo::igmpMembershipQuery: rxQuery(rx); return;
    case Ilvo::igmpV1Report: rxV1Report(rx); return;
    case Ilvo::igmpV2Report: rxV2Report(rx); return;
    case Ilvo::igmpV2Leave: rxV2Leave(rx); return;
    case Ilvo::igmpV3Report: rxV3Report(rx); return;
    default:
      trace<6>(atRxPkt(), name(), "Don't care about IGMP type 0x", HexByte{type});
      querierStatus_->otherPacketReceivedInc(1);
  }
}

// True when the group lies inside the boundary; counted then, and traced in the caller's words.
bool QuerierSm::dropAtBoundary(IpAddr group, const char* found, const char* count) {
  if (!checkMcastIntfBoundaryStatus(group)) return false;
  trace<6>(atRxPkt(), found, group);
  const U32 dropped = querierStatus_->mcastBoundaryPktReceivedInc(1);
  trace<6>(atRxPkt(), count, dropped);
  return true;
}

// Code 0 is version 1, whatever the length; any other code leaves it to the length (RFC 3376 7.1).
// igmpVersionUnknown for a length that no version has.
IgmpVersion QuerierSm::countQuery(const Pkt& pkt) {
  const size_t length = pkt.offsetBytes();
  if (IgmpCommonHdr(pkt).code() == 0) {
    querierStatus_->v1QueriesReceivedInc(1);
    return igmpVersion1;
  }
  if (length == IgmpCommonHdr::bytes) {
    querierStatus_->v2QueriesReceivedInc(1);
    return igmpVersion2;
  }
  if (length < Ilvo::IgmpV3QueryHdr::bytes) {
    trace<6>(atRxPkt(), name(), "Dropping packet with invalid length ", length);
    dropPacket();
    return igmpVersionUnknown;
  }
  querierStatus_->v3QueriesReceivedInc(1);
  return igmpVersion3;
}

// A group-specific query of an old version is what a version 3 querier itself sends for a group
// with old hosts, so it is not reported.
void QuerierSm::reportVersionDiscrepancy(IgmpVersion received, IpAddr group) {
  const IgmpVersion configured = querierConfig()->querierVersion();
  const bool oldGeneral = configured == igmpVersion3 && received != igmpVersion3 && group.isZero();
  if (oldGeneral || configured < received) {
    gmpIgmpQueryVersionConfiguredDiscrepancy.log(U32{received}, name(), U32{configured});
  }
}

void QuerierSm::rxQuery(const RxIgmp& rx) {
  const IgmpVersion version = countQuery(*rx.pkt);
  if (version == igmpVersionUnknown) return;
  if (dropAtBoundary(rx.group, "Group address configured in multicast boundary",
                     "McastBoundaryPktReceived count:")) {
    return;
  }
  reportVersionDiscrepancy(version, rx.group);
  if (querierConfig()->querierVersion() != igmpVersion1) doQuerierElection(rx.ip, rx.pkt);
  if (rx.group.isZero()) return;
  if (version == igmpVersion3) {
    rxV3SpecificQuery(rx);
  } else {
    getOrCreateGroupSm(this, rx.group)->handleRxGSQuery();
  }
}

// Whether the query's source list was whole is deliberately not asked: without a list it still
// names a group that the elected querier is about to forget.
void QuerierSm::rxV3SpecificQuery(const RxIgmp& rx) {
  const IgmpQuery query = doIgmpMembershipQueryParse(rx.pkt);
  if (query.s) return;
  const Ptr<QuerierGroupSm> groupSm = getOrCreateGroupSm(this, rx.group);
  if (query.source.empty()) {
    groupSm->handleRxGSQuery(query);
  } else {
    groupSm->handleRxGSSQuery(query);
  }
}

void QuerierSm::rxV1Report(const RxIgmp& rx) {
  if (!isLearnable(rx.group)) return;
  if (dropAtBoundary(rx.group, "Group address found in multicast boundary:",
                     "McastBoundaryPktReceived counter : ")) {
    return;
  }
  getOrCreateGroupSm(this, rx.group)->handleRxV1Report();
  querierStatus_->v1ReportReceivedInc(1);
}

void QuerierSm::rxV2Report(const RxIgmp& rx) {
  if (querierConfig()->querierVersion() == igmpVersion1) {
    trace<6>(atRxPkt(), "Ignoring V2 Reports as Igmp version configured is 1");
    return;
  }
  if (!isLearnable(rx.group)) return;
  if (dropAtBoundary(rx.group, "Group address found in multicast boundary:",
                     "McastBoundaryPktReceived counter : ")) {
    return;
  }
  getOrCreateGroupSm(this, rx.group)->handleRxV2Report();
  querierStatus_->v2ReportReceivedInc(1);
}

// Reserved groups are deliberately not tested here: no machine of theirs exists to be left.
void QuerierSm::rxV2Leave(const RxIgmp& rx) {
  if (!rx.group.isMulticast()) return;
  if (querierConfig()->querierVersion() == igmpVersion1) {
    trace<6>(atRxPkt(), "Ignoring V2 Leaves as Igmp version configured is 1");
    return;
  }
  if (dropAtBoundary(rx.group, "Group address configured in multicast boundary",
                     "McastBoundaryPktReceived count:")) {
    return;
  }
  if (!groupSm_.contains(rx.group)) {
    trace<6>(atRxPkt(), "Group ", rx.group, " doesn't exist, so leave is ignored");
    return;
  }
  getOrCreateGroupSm(this, rx.group)->handleRxLeave();
  querierStatus_->v2LeaveReceivedInc(1);
}

void QuerierSm::rxV3Report(const RxIgmp& rx) {
  const IgmpVersion configured = querierConfig()->querierVersion();
  if (configured != igmpVersion3) {
    trace<6>(atRxPkt(), "Ignoring V3 reports Igmp version configured is ", U32{configured});
    return;
  }
  const IgmpReport report = doIgmpV3MembershipReportParse(rx.pkt);
  if (!report.validPacket) {
    trace<6>(atRxPkt(), "Dropping an invalid V3 report");
    return;
  }
  const auto& records = report.groupRecord();
  for (size_t i = 0; i < std::min(records.size(), GroupLookahead::ahead); ++i) {
    lookahead_.prefetch(records[i].record.multicastAddr);
  }
  for (size_t i = 0; i < records.size(); ++i) {
    const IgmpGroupRecord& record = records[i].record;
    if (i + GroupLookahead::ahead < records.size()) {
      lookahead_.prefetch(records[i + GroupLookahead::ahead].record.multicastAddr);
    }
    const IpAddr group = record.multicastAddr;
    if (!isLearnable(group)) {
      trace<6>(atRxPkt(), "Ignoring record because ", group,
               " is not a valid, non-reserved multicast address");
      continue;
    }
    if (dropAtBoundary(group, "Group configured in multicast boundary: ",
                       "McastBoundaryPktReceived counter : ")) {
      continue;
    }
    getOrCreateGroupSm(this, group)->handleRxV3Report(record);
  }
  querierStatus_->v3ReportReceivedInc(1);
}

}  // namespace Gmp::Igmp
