#include <IlvoTestSupport/IgmpPacketBuilder.h>

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ilvo/IgmpHdr.h>
#include <Ilvo/IpHdr.h>

namespace Ilvo {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<U8>;

const IpAddr group(239, 1, 2, 3);

IpHdr ipOf(const Bytes& packet) { return IpHdr::of(*Mox::makePtr<Pkt>(packet)).value(); }
Bytes messageOf(const Bytes& packet) {
  return {packet.begin() + ipOf(packet).headerBytes(), packet.end()};
}
U16 igmpChecksumOf(const Bytes& packet) {
  const auto pkt = Mox::makePtr<Pkt>(packet);
  pkt->frontOffsetInc(ipOf(packet).headerBytes());
  return IgmpCommonHdr(*pkt).computedChecksum(ipOf(packet).payloadLen());
}

TEST(IgmpPacketBuilder, buildsAGeneralQueryByteForByte) {
  EXPECT_THAT(buildV2Query(),
              ElementsAre(0x46, 0xc0, 0x00, 0x20, 0x00, 0x00, 0x00, 0x00, 0x01, 0x02, 0x3a, 0x16,
                          0x0a, 0x00, 0x00, 0x01, 0xe0, 0x00, 0x00, 0x01, 0x94, 0x04, 0x00, 0x00,
                          0x11, 0x64, 0xee, 0x9b, 0x00, 0x00, 0x00, 0x00));
}

TEST(IgmpPacketBuilder, sendsEachMessageWhereItsRfcDoes) {
  EXPECT_EQ(ipOf(buildV1Report(group)).dst(), group);
  EXPECT_EQ(ipOf(buildV2Report(group)).dst(), group);
  EXPECT_EQ(ipOf(buildV2Leave(group)).dst(), IpAddr(224, 0, 0, 2));
  EXPECT_EQ(ipOf(buildV1Query()).dst(), IpAddr(224, 0, 0, 1));
  EXPECT_EQ(ipOf(buildV2Query(group)).dst(), group);
  EXPECT_EQ(ipOf(buildV3Query()).dst(), IpAddr(224, 0, 0, 1));
  EXPECT_EQ(ipOf(buildV3Query({.group = group})).dst(), group);
  EXPECT_EQ(ipOf(buildV3Report({})).dst(), IpAddr(224, 0, 0, 22));
}

TEST(IgmpPacketBuilder, makesBothChecksumsRight) {
  for (const Bytes& packet :
       {buildV1Report(group), buildV2Report(group), buildV2Leave(group), buildV1Query(),
        buildV2Query(group, 10), buildV3Query({.sources = {IpAddr(10, 0, 0, 9)}}),
        buildV3Report({{.type = 4, .group = group}}),
        buildV2Leave(group, {.trailingPayload = 3})}) {
    EXPECT_EQ(ipOf(packet).computedChecksum(), 0);
    EXPECT_EQ(igmpChecksumOf(packet), 0);
  }
}

TEST(IgmpPacketBuilder, writesShortMessages) {
  EXPECT_THAT(messageOf(buildV1Report(group)), ElementsAre(0x12, 0, 0xfc, 0xfa, 0xef, 1, 2, 3))
      << "version 1 report";
  EXPECT_THAT(messageOf(buildV2Leave(group)), ElementsAre(0x17, 0, 0xf7, 0xfa, 0xef, 1, 2, 3));
}

TEST(IgmpPacketBuilder, writesVersion3Queries) {
  const Bytes message = messageOf(buildV3Query({.group = group,
                                                .code = 0x8a,
                                                .sFlag = true,
                                                .qrv = 7,
                                                .qqic = 0x80,
                                                .sources = {IpAddr(1, 2, 3, 4)},
                                                .reserved = 5}));
  ASSERT_EQ(message.size(), 16u);
  EXPECT_EQ(message[1], 0x8a);
  EXPECT_THAT(Bytes(message.begin() + 4, message.end()),
              ElementsAre(239, 1, 2, 3, 0x5f, 0x80, 0, 1, 1, 2, 3, 4));
}

TEST(IgmpPacketBuilder, writesVersion3Reports) {
  const Bytes message = messageOf(
      buildV3Report({{.type = 1, .group = group, .sources = {IpAddr(1, 2, 3, 4)}, .auxWords = 1},
                     {.type = 4, .group = group}}));
  ASSERT_EQ(message.size(), 32u);
  EXPECT_EQ(message[0], 0x22);
  EXPECT_THAT(Bytes(message.begin() + 4, message.end()),
              ElementsAre(0, 0, 0, 2,                                                    //
                          1, 1, 0, 1, 239, 1, 2, 3, 1, 2, 3, 4, 0xaa, 0xaa, 0xaa, 0xaa,  //
                          4, 0, 0, 0, 239, 1, 2, 3));
}

TEST(IgmpPacketBuilder, claimsTheCountsThatItIsGiven) {
  EXPECT_EQ(messageOf(buildV3Query({.numSources = 9}))[11], 9);
  EXPECT_EQ(messageOf(buildV3Report({{.type = 4, .numSources = 9}}))[11], 9);
  EXPECT_EQ(messageOf(buildV3Report({}, {}, 9))[7], 9);
}

TEST(IgmpPacketBuilder, takesTheIpOptionsOver) {
  const Bytes packet = buildV2Report(group, {.src = IpAddr(10, 9, 9, 9),
                                             .dst = IpAddr(224, 0, 0, 2),
                                             .routerAlert = false,
                                             .ttl = 3,
                                             .tos = 0,
                                             .protocol = 17});
  const IpHdr hdr = ipOf(packet);
  EXPECT_EQ(hdr.src(), IpAddr(10, 9, 9, 9));
  EXPECT_EQ(hdr.dst(), IpAddr(224, 0, 0, 2));
  EXPECT_EQ(hdr.headerBytes(), 20);
  EXPECT_FALSE(hdr.routerAlert());
  EXPECT_EQ(packet[8], 3) << "time to live";
  EXPECT_EQ(packet[1], 0) << "type of service";
  EXPECT_EQ(hdr.protocol(), 17);
  EXPECT_EQ(hdr.computedChecksum(), 0);
}

TEST(IgmpPacketBuilder, appendsBytesWithinTheIpLengthOrBehindIt) {
  const Bytes within = buildV2Report(group, {.trailingPayload = 5});
  EXPECT_EQ(within.size(), 37u);
  EXPECT_EQ(ipOf(within).payloadLen(), 13);
  const Bytes behind = buildV2Report(group, {.padding = 14});
  EXPECT_EQ(behind.size(), 46u);
  EXPECT_EQ(ipOf(behind).payloadLen(), 8);
}

TEST(IgmpPacketBuilder, breaksTheChecksumItIsAskedTo) {
  const Bytes badIp = buildV2Report(group, {.badIpChecksum = true});
  EXPECT_NE(ipOf(badIp).computedChecksum(), 0);
  EXPECT_EQ(igmpChecksumOf(badIp), 0);
  const Bytes badIgmp = buildV2Report(group, {.badIgmpChecksum = true});
  EXPECT_EQ(ipOf(badIgmp).computedChecksum(), 0);
  EXPECT_NE(igmpChecksumOf(badIgmp), 0);
}

TEST(IgmpPacketBuilder, wrapsMessagesTooShortForAChecksum) {
  EXPECT_THAT(messageOf(buildIgmpPacket({0x11, 0x64, 7}, group)), ElementsAre(0x11, 0x64, 7));
}

TEST(IgmpPacketBuilder, refusesWhatDoesNotFit) {
  EXPECT_THROW(buildV2Report(group, {.trailingPayload = 65536}), std::length_error);
  EXPECT_NO_THROW(buildV2Report(group, {.trailingPayload = 65535 - 32}));
  EXPECT_THROW(buildV2Report(group, {.trailingPayload = 65535 - 31}), std::length_error);
}

}  // namespace
}  // namespace Ilvo
