// Any bytes are safe to read as a version 3 query. A valid query, rebuilt from its values, reads as
// the same value; all other bytes read as the one invalid value.
#include <cstddef>
#include <cstdint>
#include <vector>

#include <GmpIgmpQuerier/IgmpParse.h>
#include <Ilvo/IgmpCode.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>

#include "Messages.h"
#include "Property.h"

namespace {

using Fuzz::property;
using Gmp::Igmp::IgmpQuery;
using Mox::Ptr;
using Mox::U8;

IgmpQuery parsed(const Ptr<Ilvo::Pkt>& pkt) {
  const std::vector<U8> before(pkt->data().begin(), pkt->data().end());
  IgmpQuery query = Gmp::Igmp::doIgmpMembershipQueryParse(pkt);
  property(std::equal(before.begin(), before.end(), pkt->data().begin(), pkt->data().end()),
           "reading leaves the message as it is");
  return query;
}

std::vector<U8> rebuilt(const IgmpQuery& query) {
  return Ilvo::buildV3Query({.group = query.groupAddress,
                             .code = query.maxResponseCode,
                             .sFlag = query.s,
                             .qrv = query.qrv,
                             .qqic = Ilvo::igmpCodeEncode(query.qqi),
                             .sources = {query.source.begin(), query.source.end()}});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Fuzz::MessageWorld world;
  const Ptr<Ilvo::Pkt> pkt = Mox::makePtr<Ilvo::Pkt>(std::span<const U8>(data, size));
  const IgmpQuery query = parsed(pkt);
  if (!query.validPacket) {
    IgmpQuery invalid;
    invalid.version = Gmp::Igmp::igmpVersion3;
    property(query == invalid, "an invalid query has no values");
    return 0;
  }
  const Ptr<Ilvo::Pkt> again = Fuzz::messageOf(rebuilt(query));
  property(parsed(again) == query, "a query that is rebuilt reads the same");
  again->endOffsetDec(1);
  property(!parsed(again).validPacket, "a query that lacks a byte is invalid");
  return 0;
}
