// A querier that begins with what an agent before has left.
#include "InterfaceQuerier.h"

#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Link/QueryDatagram.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InterfaceQuerierTestSupport.h"

namespace Agent {
namespace {

using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::Ptr;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TakenOverQuerierTest : public InterfaceQuerierTest {
 protected:
  // What a querier that has run for a while leaves: its groups are there since 1000.
  void leave(bool isQuerier) {
    up();
    advance(20.0);
    join();
    if (!isQuerier) receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
    kept_ = querier().status();
    querier_ = nullptr;
    sent();
    events_.taken();
    advance(5.0);
  }
  void takeOver() {
    InterfaceSetup with = setup();
    with.kept = kept_;
    querier_ = std::make_unique<InterfaceQuerier>(services(), with);
  }

  Ptr<QuerierStatus> kept_;
};

TEST_F(TakenOverQuerierTest, hasItsGroupsFromTheBeginning) {
  leave(true);
  takeOver();
  EXPECT_EQ(&status(), kept_.get());
  EXPECT_EQ(status().group(group)->creationTime(), 1020.0);
  up();
  EXPECT_EQ(status().group(group)->creationTime(), 1020.0);
  EXPECT_EQ(querier().querier()->groupSm().size(), 1u);
  advance(status().groupMembershipInterval() - 1.0);
  EXPECT_TRUE(status().group(group));
  advance(2.0);
  EXPECT_FALSE(status().group(group));
}

TEST_F(TakenOverQuerierTest, publishesWhenAndWithHowManyGroups) {
  leave(true);
  EXPECT_EQ(kept_->group().size(), 1u);
  takeOver();
  EXPECT_EQ(state().takenOverTime(), 1025.0);
  EXPECT_EQ(state().takenOverGroups(), 1u);
}

// An agent that is killed before it starts the interface has left the state of that interface.
TEST_F(TakenOverQuerierTest, publishesWhoseStateItIsBeforeTheInterfaceIsStarted) {
  leave(true);
  takeOver();
  const Link link = linkWith(ourAddr);
  querier().publishLink(link);
  EXPECT_EQ(state().index(), link.index);
  EXPECT_EQ(state().mac(), "02:00:00:00:00:02");
  EXPECT_FALSE(querier().running());
}

TEST_F(TakenOverQuerierTest, isAnEventAndItsGroupsAreNone) {
  leave(true);
  takeOver();
  up();
  turn();
  EXPECT_THAT(
      events_.taken(),
      ElementsAre("1025 state of the agent before taken over, with 1 groups",
                  "1025 interface up, address 10.0.0.2", "1025 role querier (elected 10.0.0.2)"));
  EXPECT_EQ(events_.events().front().interface, "eth0");
}

TEST_F(TakenOverQuerierTest, asksAtOnceWhereItWasTheQuerier) {
  leave(true);
  takeOver();
  up();
  EXPECT_THAT(sent(), SizeIs(1));
  EXPECT_EQ(status().state(), QuerierStatus::querierStateQuerier);
}

// Another router asks: two at once would be no better.
TEST_F(TakenOverQuerierTest, asksAfterTheRandomDelayWhereItWasNot) {
  leave(false);
  ASSERT_EQ(kept_->state(), QuerierStatus::querierStateNonQuerier);
  takeOver();
  up();
  turn();
  EXPECT_THAT(sent(), IsEmpty());
  advance(10.0);
  EXPECT_THAT(sent(), SizeIs(1));
}

TEST_F(TakenOverQuerierTest, givesWayToALowerQuerierAtItsNextQuery) {
  leave(false);
  takeOver();
  up();
  EXPECT_EQ(status().state(), QuerierStatus::querierStateQuerier);
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_EQ(status().state(), QuerierStatus::querierStateNonQuerier);
  EXPECT_EQ(status().electedQuerierAddr(), lowerAddr);
  EXPECT_TRUE(status().group(group));
}

TEST_F(TakenOverQuerierTest, asksAtOnceWhenItsInterfaceComesUpLater) {
  leave(true);
  takeOver();
  down();
  advance(30.0);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_TRUE(status().group(group));
  up();
  EXPECT_THAT(sent(), SizeIs(1));
}

TEST_F(TakenOverQuerierTest, hasNoRoleWhereItMayNotAskAnyMore) {
  leave(true);
  config_->sendQueryIs(false);
  takeOver();
  up();
  advance(20.0);
  EXPECT_EQ(status().state(), QuerierStatus::querierStateInitial);
  EXPECT_TRUE(status().electedQuerierAddr().isZero());
  EXPECT_THAT(sent(), IsEmpty());
}

// The elected router may have gone meanwhile, and no timer of this querier would find that.
TEST_F(TakenOverQuerierTest, knowsNoElectedRouterBeforeItsNextQueryWhereItMayNotAsk) {
  constexpr IpAddr higherAddr(10, 0, 0, 9);
  config_->sendQueryIs(false);
  leave(false);
  ASSERT_EQ(kept_->electedQuerierAddr(), lowerAddr);
  takeOver();
  up();
  EXPECT_EQ(status().state(), QuerierStatus::querierStateInitial);
  EXPECT_TRUE(status().electedQuerierAddr().isZero());
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = higherAddr}));
  EXPECT_EQ(status().electedQuerierAddr(), higherAddr);
}

TEST_F(TakenOverQuerierTest, reportsTheEndOfAGroupThatItTookOver) {
  leave(true);
  takeOver();
  up();
  turn();
  events_.taken();
  advance(300.0);
  EXPECT_THAT(events_.taken(), Contains("1285 left 239.1.1.1"));
}

TEST_F(TakenOverQuerierTest, knowsItsGroupsBeforeTheyReportAgain) {
  leave(true);
  const Mox::U64 joins = kept_->joins();
  takeOver();
  up();
  EXPECT_TRUE(status().group(group)->lastReporter().isZero());
  EXPECT_EQ(status().joins(), joins + 1);
  join();
  EXPECT_EQ(status().group(group)->lastReporter(), host);
  EXPECT_EQ(status().joins(), joins + 1);
}

}  // namespace
}  // namespace Agent
