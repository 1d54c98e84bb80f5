#include "DeferredPackets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using testing::ElementsAre;

constexpr IpAddr alice(10, 0, 0, 1);
constexpr IpAddr bob(10, 0, 0, 2);
constexpr IpAddr carol(10, 0, 0, 3);

DeferredPackets::Received packet(size_t name) {
  return {.pkt = Mox::makePtr<Ilvo::Pkt>(std::array{static_cast<Mox::U8>(name)})};
}

std::vector<int> taken(DeferredPackets& deferred) {
  std::vector<int> names;
  while (!deferred.empty()) names.push_back(deferred.take().pkt->data()[0]);
  return names;
}

TEST(DeferredPackets, keepsTheOrderOfASenderWithItsRestsInFront) {
  DeferredPackets deferred;
  deferred.addRest(alice, packet(1));
  deferred.add(alice, packet(2));
  deferred.add(alice, packet(3));
  EXPECT_EQ(deferred.take().pkt->data()[0], 1);
  deferred.addRest(alice, packet(11));
  EXPECT_THAT(taken(deferred), ElementsAre(11, 2, 3));
}

TEST(DeferredPackets, takesFromTheSendersInTurn) {
  DeferredPackets deferred;
  for (const int name : {1, 2, 3}) deferred.add(alice, packet(name));
  deferred.add(bob, packet(4));
  for (const int name : {5, 6}) deferred.add(carol, packet(name));
  EXPECT_THAT(taken(deferred), ElementsAre(1, 4, 5, 2, 6, 3));
}

TEST(DeferredPackets, holdsASenderUntilItsLastPacketIsTaken) {
  DeferredPackets deferred;
  deferred.add(alice, packet(1));
  EXPECT_TRUE(deferred.holds(alice));
  EXPECT_FALSE(deferred.holds(bob));
  deferred.take();
  EXPECT_FALSE(deferred.holds(alice));
}

TEST(DeferredPackets, theSenderWithTheMostLosesItsLatestWhereThereIsNoRoom) {
  DeferredPackets deferred;
  for (size_t i = 0; i < DeferredPackets::mostPackets; ++i) {
    EXPECT_TRUE(deferred.add(alice, packet(i)));
  }
  EXPECT_FALSE(deferred.add(alice, packet(100)));
  EXPECT_FALSE(deferred.addRest(bob, packet(101)));
  EXPECT_FALSE(deferred.add(bob, packet(102)));
  const std::vector<int> names = taken(deferred);
  EXPECT_EQ(names.size(), DeferredPackets::mostPackets);
  EXPECT_THAT(std::vector(names.begin(), names.begin() + 5), ElementsAre(0, 101, 1, 102, 2));
  EXPECT_EQ(names.back(), DeferredPackets::mostPackets - 3);
}

TEST(DeferredPackets, oneMorePacketIsLostWhereNoSenderHasMore) {
  DeferredPackets deferred;
  for (Mox::U32 i = 0; i < DeferredPackets::mostPackets; ++i) {
    EXPECT_TRUE(deferred.add(IpAddr(0x0a000100 + i), packet(1)));
  }
  EXPECT_FALSE(deferred.add(bob, packet(2)));
  EXPECT_FALSE(deferred.holds(bob));
  EXPECT_EQ(deferred.clear(), DeferredPackets::mostPackets);
  EXPECT_TRUE(deferred.empty());
}

}  // namespace
}  // namespace Agent
