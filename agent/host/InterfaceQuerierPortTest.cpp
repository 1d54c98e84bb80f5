// Ports that cannot be opened, that fail, lose frames or do not send.
#include "InterfaceQuerier.h"

#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InterfaceQuerierTestSupport.h"

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(InterfaceQuerierTest, opensAnotherPortForAnMtuThatNeedsLongerBlocks) {
  up();
  Link longer = linkWith(ourAddr);
  longer.mtu = 2000;
  receiver_ = nullptr;
  querier().linkIs(&longer);
  EXPECT_EQ(receiver_, nullptr);
  longer.mtu = 65535;
  querier().linkIs(&longer);
  EXPECT_NE(receiver_, nullptr);
  EXPECT_EQ(portsOpen_, 1);
  EXPECT_TRUE(querier().running());
}

TEST_F(InterfaceQuerierTest, takesWhatThePortHasBeforeAnotherReplacesIt) {
  up();
  notRead_ = {Ilvo::buildV2Report(group, {.src = host})};
  Link longer = linkWith(ourAddr);
  longer.mtu = 65535;
  querier().linkIs(&longer);
  EXPECT_NE(status().group(group), nullptr);
}

TEST_F(InterfaceQuerierTest, beginsOnThePortThatWasOpenedBefore) {
  const Link link = linkWith(ourAddr);
  querier().prepare(&link);
  EXPECT_EQ(portsOpen_, 1);
  EXPECT_FALSE(querier().running());
  openFails_ = "no more sockets";
  up();
  EXPECT_TRUE(querier().running());
  EXPECT_EQ(portsOpen_, 1);
}

TEST_F(InterfaceQuerierTest, reportsAPortThatCannotBeOpenedBefore) {
  openFails_ = "no more sockets";
  Link link = linkWith(ourAddr);
  EXPECT_THROW(querier().prepare(&link), std::runtime_error);
  link.up = false;
  EXPECT_NO_THROW(querier().prepare(&link));
  EXPECT_NO_THROW(querier().prepare(nullptr));
}

TEST_F(InterfaceQuerierTest, triesAgainToOpenAPort) {
  openFails_ = "no more sockets";
  up();
  EXPECT_THAT(events_.taken(), ElementsAre("1000 error: no more sockets"));
  openFails_.clear();
  advance(1.0);
  EXPECT_TRUE(querier().running());
}

TEST_F(InterfaceQuerierTest, opensNoPortOfAnInterfaceThatWentDownMeanwhile) {
  openFails_ = "no more sockets";
  up();
  down();
  openFails_.clear();
  advance(60.0);
  EXPECT_EQ(portsOpen_, 0);
}

TEST_F(InterfaceQuerierTest, opensANewPortWhenOneFails) {
  up();
  events_.taken();
  receiver_->portFailed("it broke");
  EXPECT_THAT(events_.taken(),
              ElementsAre("1000 error: cannot receive any more, trying again: it broke"));
  EXPECT_EQ(portsOpen_, 0);
  advance(1.0);
  EXPECT_EQ(portsOpen_, 1);
}

// Its interface is no longer configured.
TEST_F(InterfaceQuerierTest, opensNoNewPortAfterItsEnd) {
  up();
  querier().end();
  events_.taken();
  receiver_->portFailed("it broke");
  advance(60.0);
  EXPECT_EQ(portsOpen_, 0);
  EXPECT_FALSE(querier().running());
  EXPECT_THAT(events_.taken(), testing::IsEmpty());
}

TEST_F(InterfaceQuerierTest, reportsTheSameProblemOnceAMinute) {
  config_->queryIntervalIs(20.0);
  up();
  events_.taken();
  sendFails_ = std::make_error_code(std::errc::network_down);
  advance(50.0);
  EXPECT_EQ(events_.taken().size(), 1u);
  advance(50.0);
  EXPECT_EQ(events_.taken().size(), 1u);
}

// With the first queries behind it, so that what is sent is about the group.
class QueryFailureTest : public InterfaceQuerierTest {
 protected:
  QueryFailureTest() {
    up();
    advance(40.0);
    join();
    sent();
    events_.taken();
  }
  void leaveFailing(std::errc error) {
    sendFails_ = std::make_error_code(error);
    receive(Ilvo::buildV2Leave(group, {.src = host}));
  }
};

TEST_F(QueryFailureTest, isCountedAndReported) {
  leaveFailing(std::errc::network_down);
  EXPECT_EQ(state().sendFailures(), 1u);
  EXPECT_THAT(events_.taken(), ElementsAre("1040 error: cannot send a query: Network is down; 1 "
                                           "failures so far"));
  sendFails_ = {};
  advance(0.5);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(QueryFailureTest, forWantOfMemoryIsFollowedByAnotherAttempt) {
  for (const std::errc error : {std::errc::no_buffer_space, std::errc::not_enough_memory,
                                std::errc::resource_unavailable_try_again}) {
    join();
    leaveFailing(error);
    const Mox::U64 failures = state().sendFailures();
    advance(0.1);
    EXPECT_GT(state().sendFailures(), failures);
    sendFails_ = {};
    advance(0.1);
    EXPECT_EQ(sent().size(), 1u);
    advance(0.5);
    EXPECT_THAT(sent(), IsEmpty());
  }
}

// The group is asked for twice, a second apart; each of the two is tried for a second.
TEST_F(QueryFailureTest, isFinalAfterASecond) {
  leaveFailing(std::errc::no_buffer_space);
  advance(3.0);
  const Mox::U64 failures = state().sendFailures();
  EXPECT_LE(failures, 2u * 22u);
  advance(3.0);
  EXPECT_EQ(state().sendFailures(), failures);
}

TEST_F(QueryFailureTest, isCountedAsALostQueryWhenItIsFinal) {
  leaveFailing(std::errc::no_buffer_space);
  EXPECT_EQ(state().queriesLost(), 0u);
  advance(3.0);
  EXPECT_EQ(state().queriesLost(), 2u);
}

// A general query waits whatever the others are: without it all groups would end.
TEST_F(QueryFailureTest, keepsGeneralQueriesAndAsManyOthersAsTheBurstOfQueries) {
  sendFails_ = std::make_error_code(std::errc::no_buffer_space);
  for (Mox::U32 n = 0; n < 310; ++n) {
    const Ilvo::IpAddr addr(0xef020000 + n);
    receiver_->rxPacket({.frame = {}, .packet = Ilvo::buildV2Report(addr, {.src = host})});
    receiver_->rxPacket({.frame = {}, .packet = Ilvo::buildV2Leave(addr, {.src = host})});
  }
  receiver_->rxBatchEnd();
  intake_->maxQueryBurstIs(300);
  turn();
  querier().querier()->handleQueryIntervalTimer();
  EXPECT_EQ(state().queriesLost(), 10u);
  sendFails_ = {};
  advance(0.1);
  const auto resent = sent();
  ASSERT_EQ(resent.size(), 301u);
  const Bytes& last = resent.back();
  EXPECT_EQ(Ilvo::IpAddr(last[16], last[17], last[18], last[19]), Ilvo::IpAddr(224, 0, 0, 1));
}

TEST_F(QueryFailureTest, isForgottenWhenTheInterfaceGoesDown) {
  leaveFailing(std::errc::no_buffer_space);
  down();
  const Mox::U64 failures = state().sendFailures();
  advance(3.0);
  EXPECT_EQ(state().sendFailures(), failures);
}

TEST_F(QueryFailureTest, isCountedAsALostQueryWhenItsAddressIsNoLongerThere) {
  leaveFailing(std::errc::no_buffer_space);
  up(lowerAddr);
  EXPECT_EQ(state().queriesLost(), 1u);
}

TEST_F(QueryFailureTest, isCountedAsALostQueryWhenTheInterfaceGoesDown) {
  leaveFailing(std::errc::no_buffer_space);
  down();
  EXPECT_EQ(state().queriesLost(), 1u);
}

TEST_F(InterfaceQuerierTest, reportsPacketsThatWereLost) {
  up();
  events_.taken();
  counts_.lost = 7;
  advance(6.0);
  EXPECT_THAT(events_.taken(), ElementsAre("1001 error: packets come faster than they are read: 7 "
                                           "lost so far"));
  EXPECT_EQ(state().framesLost(), 7u);
  advance(300.0);
  EXPECT_THAT(events_.taken(), IsEmpty());
}

TEST_F(InterfaceQuerierTest, publishesAllCountsOfItsPort) {
  up();
  events_.taken();
  counts_ = {.lost = 1, .unparsable = 2, .fragments = 3, .otherVlans = 4};
  advance(6.0);
  EXPECT_EQ(state().framesLost(), 1u);
  EXPECT_EQ(state().framesUnparsable(), 2u);
  EXPECT_EQ(state().fragmentsReceived(), 3u);
  EXPECT_EQ(state().otherVlanFrames(), 4u);
  EXPECT_THAT(events_.taken(),
              ElementsAre("1001 error: packets come faster than they are read: 1 lost so far",
                          "1001 error: frames without a whole IPv4 packet: 2 so far",
                          "1001 error: IGMP in fragments, which are not reassembled: 3 so far",
                          "1001 error: IGMP tagged for VLANs, which are other links: 4 so far"));
}

TEST_F(InterfaceQuerierTest, addsTheCountsOfAllItsPorts) {
  up();
  counts_.lost = 7;
  advance(6.0);
  counts_.lost = 9;
  down();
  EXPECT_EQ(state().framesLost(), 9u);
  counts_.lost = 5;  // of the new port
  up();
  advance(6.0);
  EXPECT_EQ(state().framesLost(), 14u);
}

// An event that was held back for a minute has the number once the minute is over, even when no
// more packets were lost.
TEST_F(InterfaceQuerierTest, reportsALossThatWasHeldBack) {
  up();
  counts_.lost = 7;
  advance(6.0);
  events_.taken();
  counts_.lost = 9;
  advance(50.0);
  EXPECT_THAT(events_.taken(), IsEmpty());
  advance(20.0);
  EXPECT_THAT(events_.taken(), ElementsAre("1061 error: packets come faster than they are read: 9 "
                                           "lost so far"));
}

}  // namespace
}  // namespace Agent
