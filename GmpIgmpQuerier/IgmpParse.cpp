#include <GmpIgmpQuerier/IgmpParse.h>

#include <utility>
#include <vector>

#include <GmpIgmpQuerier/ModelLogs.h>
#include <Ilvo/IgmpCode.h>

namespace Gmp::Igmp {

namespace {

using Ilvo::Pkt;
using Mox::trace;

IgmpQuery invalidQuery() {
  IgmpQuery query;
  query.version = igmpVersion3;
  return query;
}

U32 queryIntervalOf(U8 qqic) {
  const U32 qqi = Ilvo::igmpCodeDecode(qqic);
  if (qqic >= 128) {
    const U32 mantissa = qqic & 0x0f;
    const U32 exponent = (qqic & 0x70) >> 4;
    trace<6>(igmpPacketTrace, "qqic: ", qqic, ", mantissa: ", mantissa, ", exp: ", exponent,
             ", qqi: ", qqi);
  } else {
    trace<6>(igmpPacketTrace, "qqic: ", qqic, ", qqi: ", qqi);
  }
  return qqi;
}

// The unicast addresses among the `count` at offset `at`; the others are reported and left out.
IpAddrSet sourcesAt(const Pkt& pkt, size_t at, size_t count, IpAddr group) {
  std::vector<IpAddr> sources;
  sources.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    const IpAddr source = pkt.ipAddr(at + 4 * i);
    if (source.isUnicast()) {
      sources.push_back(source);
      trace<6>(igmpPacketTrace, "Source ", i, " is ", source);
    } else {
      igmpMessageInvalidSource.log(source, group);
    }
  }
  return IpAddrSet(std::move(sources));
}

// Reads the record at offset `at` and moves it past the record; false when the message is too
// short.
bool readRecord(const Pkt& pkt, size_t& at, IgmpGroupRecord& record) {
  if (!pkt.has(at + 2)) return false;
  const RecordType type(pkt.u8(at));
  const size_t auxDataLen = pkt.u8(at + 1);
  if (!pkt.has(at + 4)) return false;
  const size_t numSources = pkt.u16(at + 2);
  if (!pkt.has(at + 8)) return false;
  const IpAddr addr = pkt.ipAddr(at + 4);
  const size_t sourcesAt8 = at + 8;
  if (!pkt.has(sourcesAt8 + 4 * numSources)) return false;
  trace<6>(igmpPacketTrace, "addr: ", addr, " recordType: ", type, " auxDataLen: ", auxDataLen,
           " numSources: ", numSources);
  record.version = igmpVersion3;
  record.rType = type;
  record.multicastAddr = addr;
  trace<6>(igmpPacketTrace, "version: ", record.version, " recordType: ", type,
           " multicastAddr: ", addr);
  if (numSources > 0) record.source = sourcesAt(pkt, sourcesAt8, numSources, addr);
  at = sourcesAt8 + 4 * numSources + 4 * auxDataLen;
  return pkt.has(at);
}

}  // namespace

IgmpQuery doIgmpMembershipQueryParse(const Ptr<Pkt>& pkt) {
  if (!pkt->has(10)) return invalidQuery();
  IgmpQuery query;
  query.groupAddress = pkt->ipAddr(4);
  const U8 flags = pkt->u8(8);
  const U8 qqic = pkt->u8(9);
  query.qqi = queryIntervalOf(qqic);
  if (!pkt->has(12)) return invalidQuery();
  const size_t numSources = pkt->u16(10);
  if (!pkt->has(12 + 4 * numSources)) return invalidQuery();
  query.validPacket = true;
  query.version = igmpVersion3;
  query.maxResponseCode = pkt->u8(1);
  query.s = (flags & 0x08) != 0;
  query.qrv = flags & 0x07;
  trace<6>(igmpPacketTrace, "version: ", query.version, " maxRespCode: ", query.maxResponseCode,
           " groupAddr: ", query.groupAddress, " s: ", query.s, " qrv: ", query.qrv,
           " qqic: ", qqic, " qqi: ", query.qqi);
  query.source = sourcesAt(*pkt, 12, numSources, query.groupAddress);
  return query;
}

IgmpReport doIgmpV3MembershipReportParse(const Ptr<Pkt>& pkt) {
  if (!pkt->has(8)) return {};
  const U32 numGroupRecords = pkt->u16(6);
  trace<8>(igmpPacketTrace, "NumGroupRecords ", numGroupRecords);
  IgmpReport report;
  size_t at = 8;
  for (U32 r = 0; r < numGroupRecords; ++r) {
    trace<6>(igmpPacketTrace, "Group record ", r);
    if (!readRecord(*pkt, at, report.groupRecordIs(r))) return {};
  }
  report.validPacket = true;
  return report;
}

}  // namespace Gmp::Igmp
