// Any bytes are safe to read as a version 3 report. A valid report, rebuilt from its values, reads
// as the same value; all other bytes read as the one invalid value.
#include <cstddef>
#include <cstdint>
#include <vector>

#include <GmpIgmpQuerier/IgmpParse.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>

#include "Messages.h"
#include "Property.h"

namespace {

using Fuzz::property;
using Gmp::Igmp::IgmpReport;
using Mox::Ptr;
using Mox::U8;

IgmpReport parsed(const Ptr<Ilvo::Pkt>& pkt) {
  const std::vector<U8> before(pkt->data().begin(), pkt->data().end());
  IgmpReport report = Gmp::Igmp::doIgmpV3MembershipReportParse(pkt);
  property(std::equal(before.begin(), before.end(), pkt->data().begin(), pkt->data().end()),
           "reading leaves the message as it is");
  return report;
}

std::vector<U8> rebuilt(const IgmpReport& report) {
  std::vector<Ilvo::V3Record> records;
  for (const IgmpReport::Member& member : report.groupRecord()) {
    property(member.index == records.size(), "records are numbered in their order");
    const auto& [version, type, group, sources] = member.record;
    property(version == Gmp::Igmp::igmpVersion3, "a record read is one of version 3");
    records.push_back({.type = type.value(),
                       .group = group,
                       .sources = {sources.begin(), sources.end()},
                       .auxWords = static_cast<U8>(records.size() % 3)});
  }
  return Ilvo::buildV3Report(records);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Fuzz::MessageWorld world;
  const Ptr<Ilvo::Pkt> pkt = Mox::makePtr<Ilvo::Pkt>(std::span<const U8>(data, size));
  const IgmpReport report = parsed(pkt);
  if (!report.validPacket) {
    property(report == IgmpReport(), "an invalid report has no records");
    return 0;
  }
  const Ptr<Ilvo::Pkt> again = Fuzz::messageOf(rebuilt(report));
  property(parsed(again) == report, "a report that is rebuilt reads the same");
  again->endOffsetDec(1);
  property(!parsed(again).validPacket, "a report that lacks a byte is invalid");
  return 0;
}
