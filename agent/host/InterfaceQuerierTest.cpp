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
using testing::SizeIs;

const std::vector<U8> generalQuery{0x11, 0x64, 0xee, 0x9b, 0, 0, 0, 0};

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
  EXPECT_THAT(sent(), ElementsAre(queryDatagram(ourAddr, IpAddr(), generalQuery)));
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

TEST_F(InterfaceQuerierTest, publishesTheInterfaceThatItIsOn) {
  EXPECT_EQ(state().index(), 0u);
  EXPECT_EQ(state().mac(), "");
  querier().linkIs(nullptr);
  EXPECT_EQ(state().index(), 0u);
  down();
  EXPECT_EQ(state().index(), linkWith(ourAddr).index);
  EXPECT_EQ(state().mac(), "02:00:00:00:00:02");
}

TEST_F(InterfaceQuerierTest, reportsQueriesOnRequestOnly) {
  reportQueries_ = true;
  up();
  events_.taken();
  advance(10.0);
  ASSERT_EQ(events_.events().back().kind, Event::querySent);
  EXPECT_EQ(events_.events().back().interface, "eth0");
}

TEST_F(InterfaceQuerierTest, reportsHowLateGeneralQueriesAre) {
  up();
  advance(10.0);
  EXPECT_THAT(delays_, ElementsAre(0.0));
  const Mox::Seconds due = status().generalQueryExpiryTime();
  Mox::virtualTimeIs(due + 0.25);
  turn();
  EXPECT_THAT(delays_, ElementsAre(0.0, 0.25));
  join();
  receive(Ilvo::buildV2Leave(group, {.src = host}));
  EXPECT_THAT(delays_, SizeIs(2)) << "of a specific query";
}

TEST_F(InterfaceQuerierTest, aQueryThatIsNotTransmittedIsNotLate) {
  intake_->listenOnlyIs(true);
  up();
  advance(1000.0);
  EXPECT_THAT(delays_, IsEmpty());
}

TEST_F(InterfaceQuerierTest, countsTheChangesOfItsRole) {
  up();
  EXPECT_EQ(state().roleChanges(), 1u);
  for (int i = 0; i < 2; ++i) {
    receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
    EXPECT_EQ(state().roleChanges(), 2u);
  }
  advance(1000.0);
  EXPECT_EQ(state().roleChanges(), 3u);
}

TEST_F(InterfaceQuerierTest, asksForAGroupThatAHostLeaves) {
  up();
  join();
  receive(Ilvo::buildV2Leave(group, {.src = host}));
  const std::vector<Bytes> packets = sent();
  ASSERT_EQ(packets.size(), 1u);
  EXPECT_EQ(Bytes(packets[0].begin() + 16, packets[0].begin() + 20), (Bytes{239, 1, 1, 1}));
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
  EXPECT_EQ(frames[0], queryDatagram(lowerAddr, IpAddr(), generalQuery));
}

TEST_F(InterfaceQuerierTest, followsTheElectedOneWithANewAddress) {
  up();
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
  up(IpAddr(10, 0, 0, 3));
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
  EXPECT_EQ(status().electedQuerierAddr(), lowerAddr);
}

TEST_F(InterfaceQuerierTest, takesTheRoleWithAnAddressBelowThatOfTheElectedOne) {
  up(IpAddr(10, 0, 0, 3));
  receive(Ilvo::buildV3Query({.qrv = 7, .qqic = 60}, {.src = ourAddr}));
  EXPECT_EQ(status().electedQuerierAddr(), ourAddr);
  sent();
  up(lowerAddr);
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateQuerier);
  EXPECT_EQ(status().electedQuerierAddr(), lowerAddr);
  EXPECT_EQ(status().robustness(), config_->robustness());
  EXPECT_EQ(status().queryInterval(), config_->queryInterval());
  EXPECT_EQ(sent().size(), 1u);
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

TEST_F(InterfaceQuerierTest, ignoresItsOwnQueries) {
  up();
  advance(10.0);
  for (const Bytes& query : sent()) receiveOutgoing(query);
  EXPECT_EQ(status().v2QueriesReceived(), 0u);
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_EQ(status().v2QueriesReceived(), 1u);
}

TEST_F(InterfaceQuerierTest, knowsItsOwnQueriesWhenItsAddressHasChanged) {
  up(lowerAddr);
  advance(10.0);
  const std::vector<Bytes> queries = sent();
  ASSERT_EQ(queries.size(), 1u);
  up(ourAddr);
  receiveOutgoing(queries[0]);
  EXPECT_EQ(status().v2QueriesReceived(), 0u);
  EXPECT_EQ(status().electedQuerierAddr(), ourAddr);
}

TEST_F(InterfaceQuerierTest, followsAnotherQuerierOnItsOwnMachine) {
  up();
  advance(10.0);
  receiveOutgoing(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_EQ(status().electedQuerierAddr(), lowerAddr);
}

TEST_F(InterfaceQuerierTest, handlesABatchInItsOrderWhenItIsComplete) {
  constexpr U8 count = 3 * Gmp::Igmp::GroupLookahead::ahead;
  const auto rx = [this](const Bytes& packet) {
    receiver_->rxPacket({.frame = {}, .packet = packet, .outgoing = false});
  };
  up();
  for (U8 i = 0; i < count; ++i) {
    rx(Ilvo::buildV2Report(IpAddr(239, 1, 1, i), {.src = host}));
    rx(Ilvo::buildV2Report(group, {.src = IpAddr(10, 0, 0, i)}));
  }
  EXPECT_EQ(status().group().size(), 0u);
  receiver_->rxBatchEnd();
  EXPECT_EQ(status().group().size(), count);
  EXPECT_EQ(status().group(group)->lastReporter(), IpAddr(10, 0, 0, count - 1));
  receiver_->rxBatchEnd();
  EXPECT_EQ(status().v2ReportReceived(), 2u * count);
}

// Many events at once would keep the loop from the packets of other interfaces.
TEST_F(InterfaceQuerierTest, reportsManyChangesBetweenThePacketsOfABatch) {
  constexpr size_t count = 3 * StatusWatcher::Pending::mostChanges / 2;
  up();
  turn();
  events_.taken();
  for (size_t i = 0; i < count; ++i) {
    const IpAddr joined(239, 2, static_cast<U8>(i >> 8), static_cast<U8>(i));
    const Bytes report = Ilvo::buildV2Report(joined, {.src = host});
    receiver_->rxPacket({.frame = {}, .packet = report, .outgoing = false});
  }
  receiver_->rxBatchEnd();
  const size_t early = events_.taken().size();
  EXPECT_GT(early, 0u);
  turn();
  EXPECT_EQ(early + events_.taken().size(), count);
}

TEST_F(InterfaceQuerierTest, learnsMembersOnItsOwnMachine) {
  up();
  receiveOutgoing(Ilvo::buildV2Report(group, {.src = ourAddr}));
  EXPECT_NE(status().group(group), nullptr);
}

// An answer that waits in the ring when the timer is due counts.
TEST_F(InterfaceQuerierTest, handlesPacketsBeforeTheTimersThatAreDue) {
  up();
  join();
  Mox::virtualTimeIs(Mox::now() + 260.5);
  join();
  EXPECT_NE(status().group(group), nullptr);
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

// Before that, it asked with the intervals of the router that had been elected.
TEST_F(InterfaceQuerierTest, asksWithItsOwnIntervalsAfterTheLinkOfALostElectionCameBack) {
  config_->querierVersionIs(Gmp::Igmp::igmpVersion3);
  up();
  receive(Ilvo::buildV3Query({.code = 50, .qrv = 7, .qqic = 200}, {.src = lowerAddr}));
  ASSERT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
  ASSERT_EQ(status().robustness(), 7u);
  down();
  sent();
  up();
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateQuerier);
  EXPECT_EQ(status().electedQuerierAddr(), ourAddr);
  EXPECT_EQ(status().robustness(), 2u);
  EXPECT_EQ(status().queryInterval(), 125.0);
  EXPECT_EQ(status().queryResponseInterval(), 10.0);
}

TEST_F(InterfaceQuerierTest, knowsNoQuerierAfterALostElectionWhileSendingIsOff) {
  up();
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  ASSERT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
  config_->sendQueryIs(false);
  down();
  up();
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateInitial);
  EXPECT_EQ(status().electedQuerierAddr(), IpAddr());
  EXPECT_EQ(state().electedTime(), 0.0);
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

TEST_F(InterfaceQuerierTest, aNewBoundaryHoldsForWhatIsReceivedNext) {
  up();
  const auto boundary = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  boundary->boundaryIs(Ilvo::IpGenPrefix(group, 8), true);
  querier().boundaryIs(boundary);
  join();
  EXPECT_FALSE(status().group(group));
  querier().boundaryIs(nullptr);
  join();
  EXPECT_TRUE(status().group(group));
}

TEST_F(InterfaceQuerierTest, aBoundaryOutlivesTheQuerierThatHasIt) {
  const auto boundary = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  boundary->boundaryIs(Ilvo::IpGenPrefix(group, 8), true);
  querier().boundaryIs(boundary);
  up();
  join();
  EXPECT_FALSE(status().group(group));
}

TEST_F(InterfaceQuerierTest, atItsEndAllGroupsEnd) {
  up();
  join();
  events_.taken();
  querier().end();
  EXPECT_FALSE(querier().running());
  EXPECT_TRUE(status().group().empty());
  EXPECT_THAT(events_.taken(), testing::Contains("1000 left 239.1.1.1"));
  join();
  EXPECT_TRUE(status().group().empty());
  querier_.reset();
  EXPECT_EQ(portsOpen_, 0);
}

}  // namespace
}  // namespace Agent
