#include "DeferredPackets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using testing::ElementsAre;
using Sender = DeferredPackets::Sender;

constexpr Sender alice{.addr = IpAddr(10, 0, 0, 1), .mac = {2, 0, 0, 0, 0, 1}};
constexpr Sender bob{.addr = IpAddr(10, 0, 0, 2), .mac = {2, 0, 0, 0, 0, 2}};
constexpr Sender carol{.addr = IpAddr(10, 0, 0, 3), .mac = {2, 0, 0, 0, 0, 3}};

DeferredPackets::Received packet(size_t name) {
  return {.pkt = Mox::makePtr<Ilvo::Pkt>(std::array{static_cast<Mox::U8>(name)})};
}
int nameOf(const DeferredPackets::Received& received) { return received.pkt->data()[0]; }

std::vector<int> taken(DeferredPackets& deferred) {
  std::vector<int> names;
  while (!deferred.empty()) names.push_back(nameOf(deferred.take()));
  return names;
}

void fill(DeferredPackets& deferred, const Sender& sender) {
  for (size_t name = 0; deferred.hasRoom(); ++name) deferred.add(sender, packet(name));
}

TEST(DeferredPackets, keepsTheOrderOfASenderWithItsRestsInFront) {
  DeferredPackets deferred;
  deferred.addRest(alice, packet(1));
  deferred.add(alice, packet(2));
  deferred.add(alice, packet(3));
  EXPECT_EQ(nameOf(deferred.take()), 1);
  deferred.addRest(alice, packet(11));
  EXPECT_THAT(taken(deferred), ElementsAre(11, 2, 3));
}

TEST(DeferredPackets, takesFromTheSendersInTurn) {
  DeferredPackets deferred;
  for (const size_t name : {1U, 2U, 3U}) deferred.add(alice, packet(name));
  deferred.add(bob, packet(4));
  for (const size_t name : {5U, 6U}) deferred.add(carol, packet(name));
  EXPECT_THAT(taken(deferred), ElementsAre(1, 4, 5, 2, 6, 3));
}

TEST(DeferredPackets, holdsASenderUntilItsLastPacketIsTaken) {
  DeferredPackets deferred;
  deferred.add(alice, packet(1));
  EXPECT_TRUE(deferred.holds(alice));
  EXPECT_FALSE(deferred.holds(bob));
  EXPECT_FALSE(deferred.holds({.addr = alice.addr, .mac = bob.mac}));
  deferred.take();
  EXPECT_FALSE(deferred.holds(alice));
}

TEST(DeferredPackets, aRestPushesOutTheLatestOfTheSenderWithTheMost) {
  DeferredPackets deferred;
  fill(deferred, alice);
  const auto first = deferred.addRest(bob, packet(101));
  ASSERT_TRUE(first.has_value());
  EXPECT_FALSE(first->isRest);
  EXPECT_EQ(nameOf(first->received), DeferredPackets::mostPackets - 1);
  EXPECT_EQ(nameOf(deferred.addRest(alice, packet(102))->received),
            DeferredPackets::mostPackets - 2);
  EXPECT_FALSE(deferred.hasRoom());
  const std::vector<int> names = taken(deferred);
  EXPECT_THAT(std::vector(names.begin(), names.begin() + 3), ElementsAre(102, 101, 0));
}

TEST(DeferredPackets, aRestFindsNoRoomWhereNoSenderHasMore) {
  DeferredPackets deferred;
  for (Mox::U32 i = 0; deferred.hasRoom(); ++i) {
    EXPECT_FALSE(deferred.addRest({.addr = IpAddr(0x0a000100 + i)}, packet(1)).has_value());
  }
  const auto pushedOut = deferred.addRest(bob, packet(2));
  ASSERT_TRUE(pushedOut.has_value());
  EXPECT_TRUE(pushedOut->isRest);
  EXPECT_EQ(nameOf(pushedOut->received), 2);
  EXPECT_FALSE(deferred.holds(bob));
  EXPECT_EQ(deferred.clear(), DeferredPackets::mostPackets);
  EXPECT_TRUE(deferred.empty());
}

}  // namespace
}  // namespace Agent
