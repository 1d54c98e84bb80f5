#include <Link/QueryDatagram.h>

#include <Ilvo/IpHdr.h>
#include <Ilvo/Pkt.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U8;
using Bytes = std::vector<U8>;

constexpr IpAddr srcAddr(10, 9, 0, 1);
const Bytes generalQuery{0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0};

TEST(QueryDatagram, ofAGeneralQueryGoesToAllSystems) {
  EXPECT_EQ(queryDatagram(srcAddr, IpAddr(), generalQuery),
            (Bytes{0x46, 0xc0, 0x00, 0x20,  // 24 bytes, TOS 0xc0, 32
                   0x00, 0x00, 0x40, 0x00,  // no id, do not fragment
                   0x01, 0x02, 0xfa, 0x0c,  // TTL 1, IGMP, checksum
                   0x0a, 0x09, 0x00, 0x01,  // from us
                   0xe0, 0x00, 0x00, 0x01,  // to 224.0.0.1
                   0x94, 0x04, 0x00, 0x00,  // Router Alert
                   0x11, 0x64, 0xee, 0x9b, 0x00, 0x00, 0x00, 0x00}));
}

TEST(QueryDatagram, ofASpecificQueryGoesToItsGroup) {
  const Bytes igmp{0x11, 0x0a, 0xfe, 0xf2, 0xef, 0x01, 0x01, 0x01};
  EXPECT_EQ(queryDatagram(srcAddr, IpAddr(239, 1, 1, 1), igmp),
            (Bytes{0x46, 0xc0, 0x00, 0x20, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02, 0xea,
                   0x0b, 0x0a, 0x09, 0x00, 0x01, 0xef, 0x01, 0x01, 0x01, 0x94, 0x04,
                   0x00, 0x00, 0x11, 0x0a, 0xfe, 0xf2, 0xef, 0x01, 0x01, 0x01}));
}

TEST(QueryDatagram, hasALengthAndAChecksumThatFitALongMessage) {
  const Bytes igmp(12 + 4 * 366, 0x5a);
  const Bytes packet = queryDatagram(srcAddr, IpAddr(239, 1, 1, 1), igmp);
  const auto header = Ilvo::IpHdr::of(Ilvo::Pkt(packet));
  ASSERT_TRUE(header.has_value());
  EXPECT_EQ(header->totalLen(), 24 + igmp.size());
  EXPECT_EQ(header->computedChecksum(), 0);
  EXPECT_TRUE(header->routerAlert());
  EXPECT_EQ(Bytes(packet.begin() + 24, packet.end()), igmp);
}

TEST(IsQueryFrom, holdsForAQueryFromOneOfTheAddresses) {
  const std::vector addresses{IpAddr(10, 9, 0, 2), srcAddr};
  EXPECT_TRUE(isQueryFrom(addresses, queryDatagram(srcAddr, IpAddr(), generalQuery)));
  EXPECT_TRUE(isQueryFrom(addresses, Ilvo::buildV2Query(IpAddr(), 100, {.src = srcAddr})));
}

TEST(IsQueryFrom, doesNotHoldForAQueryFromAnotherAddress) {
  const std::vector addresses{IpAddr(10, 9, 0, 2)};
  EXPECT_FALSE(isQueryFrom(addresses, queryDatagram(srcAddr, IpAddr(), generalQuery)));
  EXPECT_FALSE(isQueryFrom({}, queryDatagram(srcAddr, IpAddr(), generalQuery)));
}

TEST(IsQueryFrom, doesNotHoldForAReport) {
  const std::vector addresses{srcAddr};
  const Bytes report = Ilvo::buildV2Report(IpAddr(239, 1, 1, 1), {.src = srcAddr});
  EXPECT_FALSE(isQueryFrom(addresses, report));
}

TEST(IsQueryFrom, doesNotHoldForAnotherProtocol) {
  const std::vector addresses{srcAddr};
  Bytes packet = queryDatagram(srcAddr, IpAddr(), generalQuery);
  packet[9] = 17;
  EXPECT_FALSE(isQueryFrom(addresses, packet));
}

TEST(IsQueryFrom, doesNotHoldForAPacketThatEndsBeforeTheMessage) {
  const std::vector addresses{srcAddr};
  const Bytes whole = queryDatagram(srcAddr, IpAddr(), generalQuery);
  for (size_t bytes = 0; bytes <= 24; ++bytes) {
    EXPECT_FALSE(isQueryFrom(addresses, std::span(whole).first(bytes))) << bytes;
  }
}

}  // namespace
}  // namespace Agent
