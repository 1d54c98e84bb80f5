// Reports of a few bytes that concern many sources, in front of the querier of an interface.
#include "InterfaceQuerier.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InterfaceQuerierTestSupport.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;

// Reports that end so many sources are handled in parts, between which the packets of others and
// timers have their turn.
class CostlyReportTest : public InterfaceQuerierTest {
 protected:
  static constexpr IpAddr busyHost{10, 0, 0, 66};
  static constexpr size_t sourcesOfGroup = 500;

  CostlyReportTest() {
    config_->querierVersionIs(Gmp::Igmp::igmpVersion3);
    up();
    advance(10.0);
    events_.taken();
  }

  static IpAddr groupOf(Mox::U32 number) { return IpAddr(0xef020001 + number); }
  void makeGroups(Mox::U32 first, Mox::U32 count) {
    for (Mox::U32 i = first; i < first + count; ++i) {
      for (Mox::U32 half = 0; half < sourcesOfGroup; half += sourcesOfGroup / 2) {
        std::vector<IpAddr> sources;
        for (Mox::U32 n = 0; n < sourcesOfGroup / 2; ++n) {
          sources.emplace_back(0x0a010000 + half + n);
        }
        receive(Ilvo::buildV3Report({{.type = 5, .group = groupOf(i), .sources = sources}},
                                    {.src = busyHost}));
      }
    }
  }
  // Ends the sources of so many groups.
  static Bytes costly(Mox::U32 first, Mox::U32 count, IpAddr sender = busyHost) {
    std::vector<Ilvo::V3Record> records;
    for (Mox::U32 i = first; i < first + count; ++i) {
      records.push_back({.type = 2, .group = groupOf(i)});
    }
    return Ilvo::buildV3Report(records, {.src = sender});
  }
  void receiveBlock(const std::vector<Bytes>& packets) {
    for (const Bytes& packet : packets) receiver_->rxPacket({.frame = {}, .packet = packet});
    receiver_->rxBatchEnd();
  }
};

TEST_F(CostlyReportTest, isHandedInByAndBy) {
  makeGroups(0, 7);
  receiveBlock({costly(0, 7)});
  EXPECT_EQ(status().sources(), 2500u);
  wheel_->turn(Mox::now());
  EXPECT_EQ(status().sources(), 1500u);
  advance(0.0);
  EXPECT_EQ(status().sources(), 0u);
  EXPECT_EQ(status().group().size(), 7u);
}

TEST_F(CostlyReportTest, laterPacketsOfItsSenderWaitBehindIt) {
  makeGroups(0, 4);
  const Bytes joinLast = Ilvo::buildV3Report(
      {{.type = 5, .group = groupOf(3), .sources = {IpAddr(10, 9, 9, 9)}}}, {.src = busyHost});
  receiveBlock({costly(0, 4), joinLast});
  advance(0.0);
  EXPECT_EQ(status().sources(), 1u) << "the source that was named last is there";
}

TEST_F(CostlyReportTest, packetsOfOthersDoNotWait) {
  const Bytes joined = Ilvo::buildV2Report(group, {.src = host});
  makeGroups(0, 4);
  receiveBlock({costly(0, 4), joined});
  EXPECT_TRUE(status().group(group) != nullptr);
  EXPECT_EQ(status().sources(), 1000u);
}

// Eight bytes end 500 sources: a block of such packets would take the time of hundreds of them.
TEST_F(CostlyReportTest, aBlockCostsNoMoreThanSomePackets) {
  makeGroups(0, 40);
  std::vector<Bytes> packets;
  for (Mox::U32 i = 0; i < 40; ++i) packets.push_back(costly(i, 1, IpAddr(0x0a000100 + i)));
  receiveBlock(packets);
  EXPECT_EQ(status().sources(), (40u - 8u) * sourcesOfGroup);
  EXPECT_EQ(state().deferredLost(), 0u);
  advance(0.0);
  EXPECT_EQ(status().sources(), 0u);
}

TEST_F(CostlyReportTest, aBlockOfLeavesCostsNoMoreThanSomePackets) {
  makeGroups(0, 40);
  const auto asked = [&] {
    int groups = 0;
    for (Mox::U32 i = 0; i < 40; ++i) {
      const auto source = status().group(groupOf(i))->source(IpAddr(0x0a010000));
      groups += source->expiryTime() < Mox::now() + 10.0 ? 1 : 0;
    }
    return groups;
  };
  std::vector<Bytes> packets;
  for (Mox::U32 i = 0; i < 40; ++i) {
    packets.push_back(Ilvo::buildV2Leave(groupOf(i), {.src = IpAddr(0x0a000100 + i)}));
  }
  receiveBlock(packets);
  EXPECT_EQ(asked(), 8);
  advance(0.0);
  EXPECT_EQ(asked(), 40);
}

TEST_F(CostlyReportTest, aFloodOfThemLosesNoneOfAnotherHost) {
  makeGroups(0, 12);
  std::vector<Bytes> packets(100, costly(0, 12));
  packets.push_back(costly(9, 3, host));
  receiveBlock(packets);
  EXPECT_GT(state().deferredLost(), 0u);
  EXPECT_THAT(
      events_.taken(),
      testing::Contains(testing::HasSubstr("costly reports come faster than they can be handled")));
  wheel_->turn(Mox::now());
  wheel_->turn(Mox::now());
  EXPECT_TRUE(status().group(groupOf(9))->source().empty()) << "its turn is the second";
}

// A sender that forges the address of a host can fill the queue in its name.
TEST_F(CostlyReportTest, aWholePacketIsNotLostBehindAFloodOfItsSender) {
  makeGroups(0, 12);
  std::vector<Bytes> packets(100, costly(0, 12));
  packets.push_back(Ilvo::buildV2Report(group, {.src = busyHost}));
  receiveBlock(packets);
  EXPECT_TRUE(status().group(group) != nullptr);
}

TEST_F(CostlyReportTest, queriesDoNotWait) {
  makeGroups(0, 4);
  receiveBlock({costly(0, 4, lowerAddr), Ilvo::buildV3Query({}, {.src = lowerAddr})});
  EXPECT_EQ(status().electedQuerierAddr(), lowerAddr);
}

TEST_F(CostlyReportTest, whatWaitsWhenTheInterfaceGoesDownIsCounted) {
  makeGroups(0, 4);
  receiveBlock({costly(0, 4), Ilvo::buildV2Report(group, {.src = busyHost})});
  down();
  EXPECT_EQ(state().deferredLost(), 2u);
  EXPECT_THAT(events_.taken(), testing::Not(testing::Contains(testing::HasSubstr("costly"))));
}

}  // namespace
}  // namespace Agent
