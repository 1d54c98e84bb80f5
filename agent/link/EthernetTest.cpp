#include <Link/Ethernet.h>

#include <vector>

#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U8;
using Bytes = std::vector<U8>;

constexpr MacAddr ours{0x02, 0, 0, 0, 0, 1};
constexpr MacAddr theirs{0x02, 0, 0, 0, 0, 2};
constexpr IpAddr ourAddr(10, 0, 0, 1);

Bytes frameOf(const MacAddr& src, const Bytes& behindSource) {
  Bytes frame{0x01, 0x00, 0x5e, 0, 0, 1};
  frame.insert(frame.end(), src.begin(), src.end());
  frame.insert(frame.end(), behindSource.begin(), behindSource.end());
  return frame;
}

Bytes ipv4Frame(const MacAddr& src, const Bytes& packet) {
  Bytes rest{0x08, 0x00};
  rest.insert(rest.end(), packet.begin(), packet.end());
  return frameOf(src, rest);
}

Bytes packetIn(const Bytes& frame) {
  const std::span<const U8> packet = ipv4Of(frame);
  return {packet.begin(), packet.end()};
}

TEST(MulticastMac, isTheLow23BitsOfTheGroupBehindThePrefixOfTheIana) {
  EXPECT_EQ(multicastMac(IpAddr(224, 0, 0, 1)), (MacAddr{0x01, 0x00, 0x5e, 0x00, 0x00, 0x01}));
  EXPECT_EQ(multicastMac(IpAddr(239, 127, 2, 3)), (MacAddr{0x01, 0x00, 0x5e, 0x7f, 0x02, 0x03}));
}

TEST(MulticastMac, leavesOutTheTopBitOfTheSecondByte) {
  EXPECT_EQ(multicastMac(IpAddr(239, 255, 255, 250)),
            (MacAddr{0x01, 0x00, 0x5e, 0x7f, 0xff, 0xfa}));
  EXPECT_EQ(multicastMac(IpAddr(239, 129, 0, 1)), multicastMac(IpAddr(224, 1, 0, 1)));
}

TEST(Ipv4Of, isAllBehindTheEthernetHeader) {
  EXPECT_EQ(packetIn(frameOf(theirs, {0x08, 0x00, 0x46, 0xc0})), (Bytes{0x46, 0xc0}));
}

TEST(Ipv4Of, looksThroughATagThatOnlyGivesAPriority) {
  EXPECT_EQ(packetIn(frameOf(theirs, {0x81, 0x00, 0xe0, 0x00, 0x08, 0x00, 0x46})), (Bytes{0x46}));
}

TEST(Ipv4Of, isNothingInAFrameOfAVlan) {
  EXPECT_TRUE(ipv4Of(frameOf(theirs, {0x81, 0x00, 0xe0, 0x01, 0x08, 0x00, 0x46})).empty());
}

TEST(Ipv4Of, isNothingInAFrameOfAnotherProtocol) {
  EXPECT_TRUE(ipv4Of(frameOf(theirs, {0x86, 0xdd, 0x60})).empty());
}

TEST(Ipv4Of, isNothingInAFrameThatIsTooShort) {
  const Bytes whole = frameOf(theirs, {0x81, 0x00, 0x00, 0x00, 0x08, 0x00});
  for (size_t bytes = 0; bytes <= whole.size(); ++bytes) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes));
    EXPECT_TRUE(ipv4Of(cut).empty()) << bytes;
  }
}

TEST(EtherPayload, namesTheFirstVlanAmongItsTags) {
  const Bytes frame = frameOf(theirs, {0x88, 0xa8, 0xe0, 0x00, 0x81, 0x00, 0xe0, 0x07, 0x81, 0x00,
                                       0x00, 0x08, 0x08, 0x00, 0x46});
  const EtherPayload payload = etherPayload(frame);
  EXPECT_EQ(payload.kind, EtherPayload::ipv4);
  EXPECT_EQ(payload.vlan, 7);
  EXPECT_EQ(Bytes(payload.ipv4Packet.begin(), payload.ipv4Packet.end()), (Bytes{0x46}));
}

TEST(EtherPayload, distinguishesOtherProtocolsFromShortFrames) {
  EXPECT_EQ(etherPayload(frameOf(theirs, {0x86, 0xdd})).kind, EtherPayload::other);
  EXPECT_EQ(etherPayload(frameOf(theirs, {0x81, 0x00, 0x00, 0x07, 0x86, 0xdd})).kind,
            EtherPayload::other);
  EXPECT_EQ(etherPayload(frameOf(theirs, {0x81, 0x00, 0x00, 0x07})).kind, EtherPayload::tooShort);
}

TEST(EtherPayload, findsATypeFieldThatIsAheadOfTheEndOfItsHeader) {
  const Bytes frame{0x08, 0x00, 1, 2, 3, 4, 0x46};
  EXPECT_EQ(etherPayload(frame, 0, 6).ipv4Packet.size(), 1u);
}

TEST(IsQueryFrom, holdsForAQueryThatThisMachineSends) {
  EXPECT_TRUE(isQueryFrom(ours, ourAddr, ipv4Frame(ours, Ilvo::buildV2Query())));
}

TEST(IsQueryFrom, doesNotHoldForWhatAHostOnThisMachineReports) {
  const Bytes report = Ilvo::buildV2Report(IpAddr(239, 1, 1, 1), {.src = ourAddr});
  EXPECT_FALSE(isQueryFrom(ours, ourAddr, ipv4Frame(ours, report)));
}

TEST(IsQueryFrom, doesNotHoldForAQueryOfAnotherRouterWithOurAddress) {
  EXPECT_FALSE(isQueryFrom(ours, ourAddr, ipv4Frame(theirs, Ilvo::buildV2Query())));
}

TEST(IsQueryFrom, doesNotHoldForAQueryFromAnotherAddressOfThisMachine) {
  const Bytes query = Ilvo::buildV2Query(IpAddr(), 100, {.src = IpAddr(10, 0, 0, 2)});
  EXPECT_FALSE(isQueryFrom(ours, ourAddr, ipv4Frame(ours, query)));
}

TEST(IsQueryFrom, doesNotHoldForAFrameThatEndsBeforeTheMessage) {
  const Bytes whole = ipv4Frame(ours, Ilvo::buildV2Query());
  const size_t message = ethernetHeaderBytes + 24;
  for (size_t bytes = 0; bytes <= message; ++bytes) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes));
    EXPECT_FALSE(isQueryFrom(ours, ourAddr, cut)) << bytes;
  }
}

}  // namespace
}  // namespace Agent
