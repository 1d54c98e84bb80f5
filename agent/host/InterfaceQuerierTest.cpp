#include "InterfaceQuerier.h"

#include <utility>

#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Link/QueryDatagram.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InterfaceQuerierTestSupport.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U8;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(InterfaceQuerierTest, waitsForTheInterface) {
  querier().linkIs(nullptr);
  EXPECT_THAT(events_.taken(), ElementsAre("1000 interface gone"));
  down();
  EXPECT_THAT(events_.taken(), ElementsAre("1000 interface down"));
  EXPECT_FALSE(querier().running());
  EXPECT_EQ(portsOpen_, 0);
  up();
  EXPECT_THAT(events_.taken(), ElementsAre("1000 interface up, address 10.0.0.2",
                                           "1000 role querier (elected 10.0.0.2)"));
  EXPECT_TRUE(querier().running());
}

TEST_F(InterfaceQuerierTest, sendsTheFirstQueryWithinTenSeconds) {
  up();
  EXPECT_THAT(sent(), IsEmpty());
  advance(10.0);
  EXPECT_THAT(sent(), ElementsAre(queryFrame(ourMac, ourAddr, IpAddr(),
                                             Bytes{0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0})));
}

TEST_F(InterfaceQuerierTest, keepsTheTimeSinceWhichTheElectedQuerierIsTheSame) {
  EXPECT_EQ(state().electedTime(), 0.0);
  up();
  EXPECT_EQ(state().electedTime(), 1000.0);
  advance(100.0);
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_EQ(state().electedTime(), 1100.0);
  advance(100.0);
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_EQ(state().electedTime(), 1100.0);
  EXPECT_EQ(querier().view().electedTime, 1100.0);
}

TEST_F(InterfaceQuerierTest, timesTheElectedQuerierAnewAfterItCouldNotReceive) {
  up();
  down();
  EXPECT_EQ(state().electedTime(), 0.0);
  advance(100.0);
  up();
  EXPECT_EQ(state().electedTime(), 1100.0);
}

TEST_F(InterfaceQuerierTest, publishesItsAddressAndWhetherItRuns) {
  EXPECT_FALSE(state().running());
  up();
  EXPECT_TRUE(state().running());
  EXPECT_EQ(state().address(), ourAddr);
  up(lowerAddr);
  EXPECT_EQ(state().address(), lowerAddr);
  down();
  EXPECT_FALSE(state().running());
  EXPECT_EQ(state().address(), lowerAddr);
}

TEST_F(InterfaceQuerierTest, reportsQueriesOnRequestOnly) {
  reportQueries_ = true;
  up();
  events_.taken();
  advance(10.0);
  ASSERT_EQ(events_.events().back().kind, Event::querySent);
  EXPECT_EQ(events_.events().back().interface, "eth0");
}

TEST_F(InterfaceQuerierTest, asksForAGroupThatAHostLeaves) {
  up();
  join();
  receive(Ilvo::buildV2Leave(group, {.src = host}));
  const std::vector<Bytes> frames = sent();
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(Bytes(frames[0].begin(), frames[0].begin() + 6),
            (Bytes{0x01, 0x00, 0x5e, 0x01, 0x01, 0x01}));
}

TEST_F(InterfaceQuerierTest, reportsAJoinOnceTheWholeReportIsHandled) {
  up();
  events_.taken();
  join();
  EXPECT_THAT(events_.taken(), ElementsAre("1000 joined 239.1.1.1 by 10.0.0.11 (version 2)"));
}

TEST_F(InterfaceQuerierTest, keepsItsGroupsWhileTheInterfaceIsDown) {
  up();
  join();
  down();
  EXPECT_EQ(portsOpen_, 0);
  advance(1000.0);
  EXPECT_FALSE(querier().view().running);
  EXPECT_NE(status().group(group), nullptr);
}

TEST_F(InterfaceQuerierTest, takesTheGroupsOverWhenTheInterfaceComesBack) {
  up();
  join();
  down();
  up();
  advance(259.0);
  EXPECT_NE(status().group(group), nullptr);
  advance(2.0);
  EXPECT_EQ(status().group(group), nullptr);
}

TEST_F(InterfaceQuerierTest, asksAtOnceWhenTheInterfaceComesBack) {
  up();
  advance(10.0);
  down();
  sent();
  up();
  EXPECT_EQ(sent().size(), 1u);
}

TEST_F(InterfaceQuerierTest, winsTheLinkAnewWithANewAddress) {
  up();
  advance(100.0);
  sent();
  events_.taken();
  up(lowerAddr);
  EXPECT_THAT(events_.taken(), ElementsAre("1100 address changed, address 10.0.0.1",
                                           "1100 role querier (elected 10.0.0.1)"));
  advance(10.0);
  const std::vector<Bytes> frames = sent();
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(frames[0],
            queryFrame(ourMac, lowerAddr, IpAddr(), Bytes{0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0}));
}

TEST_F(InterfaceQuerierTest, followsTheElectedOneWithANewAddress) {
  up();
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
  up(IpAddr(10, 0, 0, 3));
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
  EXPECT_EQ(status().electedQuerierAddr(), lowerAddr);
}

TEST_F(InterfaceQuerierTest, doesNotTakeTheRoleByANewAddressWhileSendingIsOff) {
  config_->sendQueryIs(false);
  up();
  up(lowerAddr);
  advance(20.0);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(InterfaceQuerierTest, startsAfreshOnAnotherInterfaceOfTheSameName) {
  up();
  events_.taken();
  Link other = linkWith(ourAddr);
  other.index = 3;
  querier().linkIs(&other);
  EXPECT_THAT(events_.taken(), ElementsAre("1000 interface gone, address 10.0.0.2",
                                           "1000 interface up, address 10.0.0.2"));
  EXPECT_EQ(portsOpen_, 1);
}

TEST_F(InterfaceQuerierTest, opensALongerPortForALongerMtu) {
  up();
  FrameReceiver* const before = std::exchange(receiver_, nullptr);
  Link longer = linkWith(ourAddr);
  longer.mtu = 9000;
  querier().linkIs(&longer);
  EXPECT_EQ(receiver_, before);
  EXPECT_EQ(portsOpen_, 1);
  EXPECT_TRUE(querier().running());
}

TEST_F(InterfaceQuerierTest, ignoresItsOwnQueries) {
  up();
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = ourAddr}), ourMac);
  EXPECT_EQ(status().v2QueriesReceived(), 0u);
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_EQ(status().v2QueriesReceived(), 1u);
}

TEST_F(InterfaceQuerierTest, handlesABatchInItsOrderWhenItIsComplete) {
  constexpr U8 count = 3 * Gmp::Igmp::GroupLookahead::ahead;
  up();
  for (U8 i = 0; i < count; ++i) {
    rxFrame(Ilvo::buildV2Report(IpAddr(239, 1, 1, i), {.src = host}));
    rxFrame(Ilvo::buildV2Report(group, {.src = IpAddr(10, 0, 0, i)}));
  }
  EXPECT_EQ(status().group().size(), 0u);
  receiver_->rxBatchEnd();
  EXPECT_EQ(status().group().size(), count);
  EXPECT_EQ(status().group(group)->lastReporter(), IpAddr(10, 0, 0, count - 1));
  receiver_->rxBatchEnd();
  EXPECT_EQ(status().v2ReportReceived(), 2u * count);
}

TEST_F(InterfaceQuerierTest, learnsMembersOnItsOwnMachine) {
  up();
  receive(Ilvo::buildV2Report(group, {.src = ourAddr}), ourMac);
  EXPECT_NE(status().group(group), nullptr);
}

TEST_F(InterfaceQuerierTest, leavesFramesOfVlansToTheirInterfaces) {
  up();
  Bytes frame(12, 0x02);
  const Bytes report = Ilvo::buildV2Report(group, {.src = host});
  frame.insert(frame.end(), {0x81, 0x00, 0x00, 0x05, 0x08, 0x00});
  frame.insert(frame.end(), report.begin(), report.end());
  receiver_->rxFrame(frame);
  receiver_->rxBatchEnd();
  EXPECT_EQ(status().group(group), nullptr);
}

TEST_F(InterfaceQuerierTest, learnsNoGroupInsideTheBoundary) {
  const auto boundary = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  boundary->boundaryIs(*Ilvo::IpGenPrefix::parse("239.0.0.0/8"), true);
  InterfaceSetup bounded = setup();
  bounded.boundary = boundary;
  querier_ = std::make_unique<InterfaceQuerier>(services(), bounded);
  up();
  join();
  EXPECT_EQ(status().group(group), nullptr);
  EXPECT_EQ(status().mcastBoundaryPktReceived(), 1u);
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

TEST_F(InterfaceQuerierTest, reportsTheSameProblemOnceAMinute) {
  config_->queryIntervalIs(20.0);
  up();
  events_.taken();
  sendFails_ = "Network is down";
  advance(50.0);
  EXPECT_EQ(events_.taken().size(), 1u);
  advance(50.0);
  EXPECT_EQ(events_.taken().size(), 1u);
}

TEST_F(InterfaceQuerierTest, reportsPacketsThatWereLost) {
  up();
  events_.taken();
  dropped_ = 7;
  advance(6.0);
  EXPECT_THAT(events_.taken(), ElementsAre("1001 error: packets come faster than they are read: 7 "
                                           "lost so far"));
  advance(300.0);
  EXPECT_THAT(events_.taken(), IsEmpty());
}

// An event that was held back for a minute says the number once the minute is over, even when no
// more packets were lost.
TEST_F(InterfaceQuerierTest, reportsALossThatWasHeldBack) {
  up();
  dropped_ = 7;
  advance(6.0);
  events_.taken();
  dropped_ = 9;
  advance(50.0);
  EXPECT_THAT(events_.taken(), IsEmpty());
  advance(20.0);
  EXPECT_THAT(events_.taken(), ElementsAre("1061 error: packets come faster than they are read: 9 "
                                           "lost so far"));
}

// While retransmissions of a lost election are pending, the role is only kept to finish them.
TEST_F(InterfaceQuerierTest, doesNotTakeTheRoleBackByANewAddressDuringAHandOver) {
  up();
  join();
  receive(Ilvo::buildV2Leave(group, {.src = host}));
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  ASSERT_TRUE(querier().querier()->transitionToNonQuerier());
  up(IpAddr(10, 0, 0, 3));
  EXPECT_EQ(status().electedQuerierAddr(), lowerAddr);
  advance(5.0);
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
}

}  // namespace
}  // namespace Agent
