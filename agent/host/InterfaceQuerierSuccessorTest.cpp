// A querier that is replaced by another one on the same status: after a gap, and when its link goes
// down and comes up.
#include <utility>

#include <gtest/gtest.h>

#include "InterfaceQuerierTestSupport.h"

namespace Agent {
namespace {

// A process that was stopped finds timers due whose answers it could not receive.
TEST_F(InterfaceQuerierTest, endsNoGroupAfterAGapInWhichNothingWasHandled) {
  up();
  join();
  advance(10.0);
  sent();
  Mox::virtualTimeIs(Mox::now() + 1000.0);
  querier().rebuildAfterGap(Mox::now() - wheel_->nextWake());
  turn();
  EXPECT_NE(status().group(group), nullptr);
  EXPECT_EQ(sent().size(), 1u);
  advance(259.0);
  EXPECT_NE(status().group(group), nullptr);
  advance(2.0);
  EXPECT_EQ(status().group(group), nullptr);
}

// There may be a million: what a link that goes down ends at once would keep its host from others.
TEST_F(InterfaceQuerierTest, deletesTheGroupsOfAQuerierThatEndedInSteps) {
  constexpr Mox::U32 groups = 5000;
  intake_->maxGroupsIs(groups);
  up();
  for (Mox::U32 n = 0; n < groups; ++n) {
    receive(Ilvo::buildV2Report(Ilvo::IpAddr(0xef020000 + n), {.src = host}));
  }
  ASSERT_EQ(status().group().size(), groups);
  const auto ended = querier().querier();
  down();
  EXPECT_FALSE(querier().hasEnded());
  size_t turns = 0;
  for (size_t left = ended->groupSm().size(); left != 0; ++turns) {
    const size_t before = std::exchange(left, ended->groupSm().size());
    EXPECT_LE(before - left, 1200u);
    turn();
  }
  EXPECT_GE(turns, 4u);
  EXPECT_EQ(status().group().size(), groups);
}

TEST_F(InterfaceQuerierTest, aQuerierThatFollowsAnotherAtOnceHasAllOfItsGroups) {
  up();
  join();
  down();
  up();
  advance(200.0);
  join();
  advance(100.0);
  EXPECT_NE(status().group(group), nullptr);
  advance(200.0);
  EXPECT_EQ(status().group(group), nullptr);
}

TEST_F(InterfaceQuerierTest, staysAsItIsAfterAGapInWhichHostsCouldStillAnswer) {
  up();
  const auto before = querier().querier();
  querier().rebuildAfterGap(5.0);
  EXPECT_EQ(querier().querier(), before);
  querier().rebuildAfterGap(5.1);
  EXPECT_NE(querier().querier(), before);
}

// Whenever the gap begins, a timer is so late at its end that it is seen.
TEST_F(InterfaceQuerierTest, seesEveryGapLongerThanTheResponseInterval) {
  up();
  advance(100.0);
  for (int begin = 0; begin < 50; ++begin) {
    advance(0.1);
    const auto before = querier().querier();
    Mox::virtualTimeIs(Mox::now() + 10.1);
    querier().rebuildAfterGap(Mox::now() - wheel_->nextWake());
    EXPECT_NE(querier().querier(), before) << begin;
    turn();
  }
}

}  // namespace
}  // namespace Agent
