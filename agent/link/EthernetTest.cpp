#include <Link/Ethernet.h>

#include <vector>

#include <gtest/gtest.h>

namespace Agent {
namespace {

using Mox::U8;
using Bytes = std::vector<U8>;

Bytes frameOf(const Bytes& behindAddresses) {
  Bytes frame(12, 0x02);
  frame.insert(frame.end(), behindAddresses.begin(), behindAddresses.end());
  return frame;
}

Bytes packetIn(const EtherPayload& payload) {
  return {payload.ipv4Packet.begin(), payload.ipv4Packet.end()};
}

TEST(EtherPayload, isAllBehindTheEthernetHeader) {
  const Bytes frame = frameOf({0x08, 0x00, 0x46, 0xc0});
  EXPECT_EQ(etherPayload(frame).kind, EtherPayload::ipv4);
  EXPECT_EQ(packetIn(etherPayload(frame)), (Bytes{0x46, 0xc0}));
}

TEST(EtherPayload, hasNoVlanBehindATagThatOnlyGivesAPriority) {
  const Bytes frame = frameOf({0x81, 0x00, 0xe0, 0x00, 0x08, 0x00, 0x46});
  EXPECT_EQ(etherPayload(frame).vlan, 0);
  EXPECT_EQ(packetIn(etherPayload(frame)), (Bytes{0x46}));
}

TEST(EtherPayload, namesTheFirstVlanAmongItsTags) {
  const Bytes frame = frameOf(
      {0x88, 0xa8, 0xe0, 0x00, 0x81, 0x00, 0xe0, 0x07, 0x81, 0x00, 0x00, 0x08, 0x08, 0x00, 0x46});
  const EtherPayload payload = etherPayload(frame);
  EXPECT_EQ(payload.kind, EtherPayload::ipv4);
  EXPECT_EQ(payload.vlan, 7);
  EXPECT_EQ(packetIn(payload), (Bytes{0x46}));
}

TEST(EtherPayload, distinguishesOtherProtocolsFromShortFrames) {
  EXPECT_EQ(etherPayload(frameOf({0x86, 0xdd})).kind, EtherPayload::other);
  EXPECT_EQ(etherPayload(frameOf({0x81, 0x00, 0x00, 0x07, 0x86, 0xdd})).kind, EtherPayload::other);
  EXPECT_EQ(etherPayload(frameOf({0x81, 0x00, 0x00, 0x07})).kind, EtherPayload::tooShort);
}

TEST(EtherPayload, hasNoPacketInAFrameThatEndsBeforeIt) {
  const Bytes whole = frameOf({0x81, 0x00, 0x00, 0x00, 0x08, 0x00});
  for (size_t bytes = 0; bytes <= whole.size(); ++bytes) {
    EXPECT_TRUE(etherPayload(std::span(whole).first(bytes)).ipv4Packet.empty()) << bytes;
  }
}

TEST(EtherPayload, findsATypeFieldThatIsAheadOfTheEndOfItsHeader) {
  const Bytes frame{0x08, 0x00, 1, 2, 3, 4, 0x46};
  EXPECT_EQ(etherPayload(frame, 0, 6).ipv4Packet.size(), 1u);
}

}  // namespace
}  // namespace Agent
