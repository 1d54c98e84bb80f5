// The intake in front of the querier, and what is kept from leaving behind it.
#include "InterfaceQuerier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InterfaceQuerierTestSupport.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class InterfaceQuerierIntakeTest : public InterfaceQuerierTest {
 protected:
  static constexpr IpAddr other{239, 1, 1, 2};

  InterfaceQuerierIntakeTest() {
    up();
    advance(10.0);
    sent();
    events_.taken();
  }
  Mox::U64 counted(IntakeRule rule) { return querier().intakeStatus()->counted(rule); }
  bool has(IpAddr addr) { return status().group(addr) != nullptr; }
  static Bytes report(IpAddr addr) { return Ilvo::buildV2Report(addr, {.src = host}); }
  // A frame from that station to the MAC address of the packet's group.
  void receiveFrom(MacAddr mac, const Bytes& packet) {
    Bytes frame{1, 0, 0x5e, static_cast<Ilvo::U8>(packet[17] & 0x7f), packet[18], packet[19]};
    frame.insert(frame.end(), mac.begin(), mac.end());
    frame.insert(frame.end(), {8, 0});
    frame.insert(frame.end(), packet.begin(), packet.end());
    receiver_->rxPacket({.frame = frame, .packet = std::span(frame).subspan(14)});
    receiver_->rxBatchEnd();
    turn();
  }
};

TEST_F(InterfaceQuerierIntakeTest, refusesWhatItsRulesRefuse) {
  receive(Ilvo::buildV2Report(group, {.src = host, .ttl = 2}));
  EXPECT_FALSE(has(group));
  EXPECT_EQ(counted(IntakeRule::wrongTtl), 1u);
  EXPECT_EQ(status().v2ReportReceived(), 0u);
  EXPECT_THAT(events_.taken(),
              ElementsAre("1010 a packet with a TTL other than 1, from 10.0.0.11, group "
                          "239.1.1.1; 1 so far"));
}

TEST_F(InterfaceQuerierIntakeTest, reportsARuleOnceAMinute) {
  for (int i = 0; i < 3; ++i) receive(Ilvo::buildV2Report(group, {.src = host, .ttl = 2}));
  EXPECT_EQ(events_.taken().size(), 1u);
  advance(60.0);
  events_.taken();
  receive(Ilvo::buildV2Report(group, {.src = host, .ttl = 2}));
  EXPECT_THAT(events_.taken(), ElementsAre(HasSubstr("; 4 so far")));
}

TEST_F(InterfaceQuerierIntakeTest, judgesEachPacketOfABatchAfterTheOneBefore) {
  intake_->maxGroupsIs(1);
  receiver_->rxPacket({.frame = {}, .packet = report(group)});
  receiver_->rxPacket({.frame = {}, .packet = report(other)});
  receiver_->rxBatchEnd();
  EXPECT_TRUE(has(group));
  EXPECT_FALSE(has(other));
  EXPECT_EQ(counted(IntakeRule::groupLimit), 1u);
}

TEST_F(InterfaceQuerierIntakeTest, handsAChangedPacketInAsItWasChanged) {
  intake_->maxGroupsIs(1);
  config_->querierVersionIs(Gmp::Igmp::igmpVersion3);
  receive(Ilvo::buildV3Report({{.type = 2, .group = group}, {.type = 2, .group = other}},
                              {.src = host}));
  EXPECT_TRUE(has(group));
  EXPECT_FALSE(has(other));
  EXPECT_EQ(status().v3ReportReceived(), 1u);
  EXPECT_EQ(status().errorPacketReceived(), 0u);
}

TEST_F(InterfaceQuerierIntakeTest, knowsTheSubnetsOfItsInterface) {
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = IpAddr(9, 9, 9, 9)}));
  EXPECT_EQ(counted(IntakeRule::foreignQuery), 1u);
  EXPECT_EQ(status().electedQuerierAddr(), ourAddr);
  Link link = linkWith(ourAddr);
  link.addresses.push_back({.address = IpAddr(9, 9, 9, 1), .prefixLength = 24, .global = true});
  querier().linkIs(&link);
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = IpAddr(9, 9, 9, 9)}));
  EXPECT_EQ(status().electedQuerierAddr(), IpAddr(9, 9, 9, 9));
}

TEST_F(InterfaceQuerierIntakeTest, warnsOfANewQuerierAndOfItsOwnAddressElsewhere) {
  const MacAddr mac{2, 0, 0, 0, 0, 9};
  receiveFrom(mac, Ilvo::buildV2Query(IpAddr(), 100, {.src = ourAddr}));
  EXPECT_THAT(events_.taken(),
              ElementsAre("1010 warning: another station uses this address: 10.0.0.2 "
                          "(02:00:00:00:00:09); 1 so far"));
  receiveFrom(mac, Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_THAT(events_.taken(),
              ElementsAre("1010 warning: a new querier has won the election: 10.0.0.1 "
                          "(02:00:00:00:00:09); 1 so far",
                          "1010 role nonQuerier (elected 10.0.0.1)"));
}

TEST_F(InterfaceQuerierIntakeTest, refusesFramesThatWereSentToThisStationAlone) {
  Bytes frame(ourMac.begin(), ourMac.end());
  frame.insert(frame.end(), {2, 0, 0, 0, 0, 9, 8, 0});
  const Bytes packet = report(group);
  frame.insert(frame.end(), packet.begin(), packet.end());
  receiver_->rxPacket({.frame = frame, .packet = std::span(frame).subspan(14)});
  receiver_->rxBatchEnd();
  EXPECT_EQ(counted(IntakeRule::notMulticast), 1u);
}

TEST_F(InterfaceQuerierIntakeTest, listenOnlyTransmitsNothingAtAnyTime) {
  join();
  intake_->listenOnlyIs(true);
  receive(Ilvo::buildV2Leave(group, {.src = host}));
  advance(400.0);
  EXPECT_THAT(sent(), IsEmpty());
  intake_->listenOnlyIs(false);
  advance(200.0);
  EXPECT_FALSE(sent().empty());
}

TEST_F(InterfaceQuerierIntakeTest, listenOnlyEndsFurtherAttemptsOfAQueryThatFailed) {
  sendFails_ = std::make_error_code(std::errc::no_buffer_space);
  join();
  receive(Ilvo::buildV2Leave(group, {.src = host}));
  intake_->listenOnlyIs(true);
  sendFails_.clear();
  advance(0.2);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(InterfaceQuerierIntakeTest, clearsAllGroupsOrOne) {
  join();
  receive(report(other));
  events_.taken();
  EXPECT_EQ(querier().clearGroups(group), 1u);
  EXPECT_FALSE(has(group));
  EXPECT_TRUE(has(other));
  EXPECT_THAT(events_.taken(), ElementsAre("1010 left 239.1.1.1"));
  EXPECT_EQ(querier().clearGroups(group), 0u);
  join();
  EXPECT_EQ(querier().clearGroups({}), 2u);
  EXPECT_TRUE(status().group().empty());
}

TEST_F(InterfaceQuerierIntakeTest, clearsManyGroupsInSteps) {
  for (Mox::U32 n = 0; n < 2500; ++n) receive(report(IpAddr(0xef020000 + n)));
  EXPECT_EQ(querier().clearGroups({}), 2500u);
  EXPECT_EQ(status().group().size(), 1476u);
  wheel_->turn(Mox::now());
  EXPECT_EQ(status().group().size(), 452u);
  advance(0.0);
  EXPECT_TRUE(status().group().empty());
}

TEST_F(InterfaceQuerierIntakeTest, clearedGroupsHoldUpNoHandOver) {
  join();
  receive(Ilvo::buildV2Leave(group, {.src = host}));
  receive(Ilvo::buildV2Query(IpAddr(), 100, {.src = lowerAddr}));
  EXPECT_TRUE(querier().querier()->transitionToNonQuerier());
  querier().clearGroups({});
  EXPECT_TRUE(querier().querier()->pendingRexmit().empty());
  EXPECT_EQ(status().state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
}

TEST_F(InterfaceQuerierIntakeTest, asksNobodyWhenGroupsAreCleared) {
  join();
  querier().clearGroups({});
  advance(3.0);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(InterfaceQuerierIntakeTest, clearsTheGroupsOfAnInterfaceThatIsDown) {
  join();
  down();
  EXPECT_EQ(querier().clearGroups({}), 1u);
  up();
  EXPECT_TRUE(status().group().empty());
}

}  // namespace
}  // namespace Agent
