#include "TestBench.h"

#include <Ilvo/IgmpCode.h>

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Status = QuerierStatus;

namespace {

class QuerierSmElection : public TestBench {
 protected:
  void startInitial() {
    config_->sendQueryIs(false);
    start();
  }
  // The querier with a group whose specific queries are still due.
  void startAsking() {
    start();
    receiveRecord(4, group_);
    receiveLeave(group_);
    ASSERT_NE(groupSm(group_)->rexmitGroupQuery(), 0u);
  }
  // The election's own lines, without those of the packet and of timers.
  std::vector<std::string> electionTraces() const {
    std::vector<std::string> texts;
    for (const std::string& text : traceTexts()) {
      if (text.starts_with("vlan10 ") && !text.starts_with("vlan10 handling")) {
        texts.push_back(text);
      }
    }
    return texts;
  }
  void expectFollowing(IpAddr elected, Seconds presentInterval) const {
    EXPECT_EQ(status_->electedQuerierAddr(), elected);
    EXPECT_EQ(status_->generalQueryExpiryTime(), never);
    EXPECT_EQ(status_->otherQuerierExpiryTime(), now() + presentInterval);
  }
};

TEST_F(QuerierSmElection, TakingTheRoleIsPublishedInItsOrder) {
  startInitial();
  traces_.clear();
  watch(status_, "status");
  srand48(7);
  querier_->becomeQuerier();
  const Seconds first = status_->generalQueryExpiryTime();
  EXPECT_THAT(journal_,
              ElementsAre("status.electedQuerierAddr 10.0.0.5", "status.otherQuerierExpiryTime inf",
                          "status.state querierStateQuerier",
                          "status.generalQueryExpiryTime " + Mox::textOf(first)));
  const auto texts = traceTexts();
  ASSERT_GE(texts.size(), 2u);
  EXPECT_EQ(texts[0], "QuerierSm( vlan10 )::becomeQuerier()");
  EXPECT_EQ(texts[1], "QuerierSm( vlan10 ): Assigning our address 10.0.0.5 as querier ");
  srand48(7);
  EXPECT_EQ(first, begin_ + drand48() * 10.0);
}

TEST_F(QuerierSmElection, FirstDelaysSpreadOverTenSeconds) {
  startInitial();
  Seconds least = never;
  Seconds most = 0.0;
  for (long seed = 0; seed < 1000; ++seed) {
    srand48(seed * 7919);
    querier_->becomeQuerier();
    least = std::min(least, status_->generalQueryExpiryTime() - now());
    most = std::max(most, status_->generalQueryExpiryTime() - now());
  }
  EXPECT_GE(least, 0.0);
  EXPECT_LT(least, 1.0);
  EXPECT_GT(most, 9.0);
  EXPECT_LT(most, 10.0);
}

TEST_F(QuerierSmElection, EachJudgedQueryIsTracedWithItsHeaderAndSize) {
  start();
  traces_.clear();
  receiveV3Query(higher_);
  EXPECT_EQ(traced("void Gmp::Igmp::QuerierSm::doQuerierElection(const Ptr&, const Ptr&)"
                   "IpHdr( 10.0.0.9 -> 224.0.0.1 protocol 2 length 36 )size 12"),
            1u);
}

TEST_F(QuerierSmElection, AQueryFromAHigherAddressIsIgnoredEntirely) {
  start();
  watch(status_, "status");
  traces_.clear();
  receiveV3Query(higher_, {.code = 50, .qrv = 3, .qqic = 60});
  EXPECT_THAT(journal_, ElementsAre("status.v3QueriesReceived 1"));
  EXPECT_THAT(electionTraces(), ElementsAre("vlan10 Existing querier 10.0.0.5 wins election"));
}

TEST_F(QuerierSmElection, AQueryFromZeroTakesNoPart) {
  start();
  watch(status_, "status");
  traces_.clear();
  receiveV3Query(IpAddr());
  EXPECT_THAT(journal_, ElementsAre("status.v3QueriesReceived 1"));
  EXPECT_THAT(electionTraces(),
              ElementsAre("vlan10 Ignoring Query from 0.0.0.0 for Querier Election"));
}

TEST_F(QuerierSmElection, AQueryFromALowerAddressTakesTheRoleInItsOrder) {
  start();
  watch(status_, "status");
  watch(Ptr<const QuerierSm>(querier_), "sm");
  traces_.clear();
  receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
  EXPECT_THAT(
      journal_,
      ElementsAre("sm.pktSrc 10.0.0.2", "status.v3QueriesReceived 1",
                  "status.electedQuerierAddr 10.0.0.2", "status.state querierStateNonQuerier",
                  "status.robustness 3", "status.queryInterval 60",
                  "status.queryResponseInterval 5", "sm.queryIntervalTimerState timerDisabled",
                  "status.generalQueryExpiryTime inf", "sm.otherQuerierTimerState timerRunning",
                  "status.otherQuerierExpiryTime 1182.5"));
  EXPECT_THAT(electionTraces(),
              ElementsAre("vlan10 New querier 10.0.0.2 wins over 10.0.0.5",
                          "vlan10 electedQuerierAddrIs 10.0.0.2",
                          "vlan10 IGMPv3 Querier detected and won election  with Robustness:3"
                          " Interval:60 Resp:5",
                          "vlan10 set query timer='inf' as we are no longer the querier",
                          "vlan10 otherQuerier expires in 182.5"));
  EXPECT_FALSE(querier_->transitionToNonQuerier());
  EXPECT_TRUE(querier_->pendingRexmit().empty());
}

TEST_F(QuerierSmElection, AddressesAreComparedAsNumbers) {
  setup_.ipAddr = IpAddr(10, 0, 0, 200);
  start();
  receiveV3Query(IpAddr(9, 255, 255, 255));
  EXPECT_EQ(status_->electedQuerierAddr(), IpAddr(9, 255, 255, 255));
  receiveV3Query(IpAddr(192, 0, 0, 1));
  EXPECT_EQ(status_->electedQuerierAddr(), IpAddr(9, 255, 255, 255));
}

TEST_F(QuerierSmElection, OurOwnQueryLoopedBackRefreshesNothing) {
  start();
  watch(status_, "status");
  traces_.clear();
  receiveV3Query(own_, {.code = 50, .qrv = 3, .qqic = 60});
  EXPECT_THAT(journal_, ElementsAre("status.v3QueriesReceived 1"));
  EXPECT_THAT(electionTraces(), ElementsAre("vlan10 Existing querier 10.0.0.5 refreshing"));
}

TEST_F(QuerierSmElection, OurOwnQueryBeforeAnyRoleOnlyNamesUs) {
  startInitial();
  receiveV3Query(own_, {.code = 50, .qrv = 3, .qqic = 60});
  EXPECT_EQ(status_->electedQuerierAddr(), own_);
  EXPECT_EQ(status_->robustness(), 2u);
  EXPECT_EQ(wheel_->armed(), 0u);
}

TEST_F(QuerierSmElection, TheElectedQuerierRefreshesItsValuesAndTheTimer) {
  start();
  receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
  runFor(10.0);
  traces_.clear();
  watch(status_, "status");
  receiveV3Query(lower_, {.code = 100, .qrv = 2, .qqic = 60});
  expectFollowing(lower_, 2 * 60.0 + 5.0);
  EXPECT_EQ(status_->state(), Status::querierStateNonQuerier);
  EXPECT_EQ(electionTraces()[0], "vlan10 Existing querier 10.0.0.2 refreshing");
}

TEST_F(QuerierSmElection, AHigherAddressThanTheElectedOneIsIgnoredByANonQuerier) {
  start();
  receiveV3Query(lower_);
  const Seconds gone = status_->otherQuerierExpiryTime();
  runFor(10.0);
  receiveV3Query(IpAddr(10, 0, 0, 4));  // lower than our own address
  EXPECT_EQ(status_->electedQuerierAddr(), lower_);
  EXPECT_EQ(status_->otherQuerierExpiryTime(), gone);
}

TEST_F(QuerierSmElection, AnEvenLowerAddressReplacesTheElectedOne) {
  start();
  receiveV3Query(lower_);
  runFor(10.0);
  traces_.clear();
  receiveV3Query(IpAddr(10, 0, 0, 1), {.code = 50, .qrv = 3, .qqic = 60});
  expectFollowing(IpAddr(10, 0, 0, 1), 182.5);
  EXPECT_EQ(electionTraces()[0], "vlan10 New querier 10.0.0.1 wins over 10.0.0.2");
}

TEST_F(QuerierSmElection, WithoutARoleItFollowsTheFirstQuerierAndLaterTakesItsPlace) {
  startInitial();
  traces_.clear();
  receiveV3Query(higher_, {.code = 50, .qrv = 3, .qqic = 60});
  EXPECT_EQ(electionTraces()[0], "vlan10 New querier 10.0.0.9 wins over 0.0.0.0");
  EXPECT_EQ(status_->state(), Status::querierStateInitial);
  EXPECT_EQ(status_->robustness(), 3u);
  expectFollowing(higher_, 182.5);
  runFor(182.5);
  EXPECT_EQ(status_->state(), Status::querierStateQuerier);
  EXPECT_EQ(status_->electedQuerierAddr(), own_);
  EXPECT_EQ(sent_.size(), 1u);
}

TEST_F(QuerierSmElection, AVersion2QueryBringsItsResponseTimeOnly) {
  start();
  config_->robustnessIs(5);
  config_->queryIntervalIs(100.0);
  receiveV2Query(lower_, {}, 57);
  EXPECT_EQ(status_->robustness(), 5u);
  EXPECT_EQ(status_->queryInterval(), 100.0);
  EXPECT_EQ(status_->queryResponseInterval(), 5.7);
  expectFollowing(lower_, 500.0 + 2.85);
}

TEST_F(QuerierSmElection, AnOldQueryReplacesTheValuesOfANewerOneByTheConfigured) {
  start();
  receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
  receiveV2Query(lower_);
  EXPECT_EQ(status_->robustness(), 2u);
  EXPECT_EQ(status_->queryInterval(), 125.0);
  EXPECT_EQ(status_->queryResponseInterval(), 10.0);
}

TEST_F(QuerierSmElection, AVersion1QueryMeansTenSeconds) {
  config_->queryResponseIntervalIs(4.0);
  start();
  receiveV1Query(lower_);
  EXPECT_EQ(status_->queryResponseInterval(), 10.0);
  EXPECT_EQ(tracedBegin("vlan10 IGMPv3 Querier"), 0u);
}

TEST_F(QuerierSmElection, TheLengthAloneDecidesWhichValuesAQueryHas) {
  start();
  // Code 0 counts as version 1, but there are twelve bytes, so the version 3 fields are read.
  receiveV3Query(lower_, {.code = 0, .qrv = 3, .qqic = 60});
  EXPECT_EQ(status_->v1QueriesReceived(), 1u);
  EXPECT_EQ(status_->robustness(), 3u);
  EXPECT_EQ(status_->queryInterval(), 60.0);
  EXPECT_EQ(status_->queryResponseInterval(), 10.0);
}

TEST_F(QuerierSmElection, ElevenBytesAreStillAnOldQuery) {
  start();
  receive(Ilvo::buildIgmpPacket({0x11, 0, 0, 0, 0, 0, 0, 0, 0x03, 60, 0}, IpAddr(224, 0, 0, 1),
                                {.src = lower_}));
  EXPECT_EQ(status_->electedQuerierAddr(), lower_);
  EXPECT_EQ(status_->robustness(), 2u);
  EXPECT_EQ(status_->queryInterval(), 125.0);
}

TEST_F(QuerierSmElection, ZeroFieldsOfAVersion3QueryMeanTheConfiguredValues) {
  config_->robustnessIs(5);
  config_->queryIntervalIs(100.0);
  config_->queryResponseIntervalIs(8.0);
  start();
  receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
  receiveV3Query(lower_, {.code = 0, .qrv = 0, .qqic = 0});
  EXPECT_EQ(status_->robustness(), 5u);
  EXPECT_EQ(status_->queryInterval(), 100.0);
  EXPECT_EQ(status_->queryResponseInterval(), 8.0);
  expectFollowing(lower_, 504.0);
}

TEST_F(QuerierSmElection, CodesFrom128OnAreDecoded) {
  start();
  receiveV3Query(lower_, {.code = 0x8a, .qrv = 7, .qqic = 0xff});
  EXPECT_EQ(status_->queryResponseInterval(), 20.8);
  EXPECT_EQ(status_->queryInterval(), 31744.0);
  EXPECT_EQ(status_->robustness(), 7u);
}

TEST_F(QuerierSmElection, WhileGroupsAreAskedForTheRoleIsKept) {
  startAsking();
  watch(status_, "status");
  receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
  EXPECT_EQ(status_->state(), Status::querierStateQuerier);
  EXPECT_TRUE(querier_->transitionToNonQuerier());
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(group_));
  expectFollowing(lower_, 182.5);
}

TEST_F(QuerierSmElection, PendingSourcesKeepTheRoleToo) {
  start();
  receiveRecord(1, group_, {source_});
  receiveRecord(6, group_, {source_});
  ASSERT_EQ(groupSm(group_)->rexmitGroupQuery(), 0u);
  receiveV3Query(lower_);
  EXPECT_TRUE(querier_->transitionToNonQuerier());
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(group_));
}

TEST_F(QuerierSmElection, OnlyGroupsWithPendingQueriesArePending) {
  startAsking();
  receiveV2Report(group2_);
  querier_->pendingRexmitIs(IpAddr(239, 9, 9, 9), true);  // of an earlier hand-over
  receiveV3Query(lower_);
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(group_));
}

TEST_F(QuerierSmElection, TheHandOverEndsWithTheLastPendingQuery) {
  startAsking();
  receiveV3Query(lower_);
  takeSent();
  runFor(30.0);
  EXPECT_EQ(sent_.size(), 2u);
  for (const SentQuery& query : sent_) EXPECT_EQ(query.dst, group_);
  EXPECT_EQ(status_->state(), Status::querierStateNonQuerier);
  EXPECT_FALSE(querier_->transitionToNonQuerier());
  EXPECT_TRUE(querier_->pendingRexmit().empty());
}

TEST_F(QuerierSmElection, AnotherQueryDuringTheHandOverJudgesItAnew) {
  startAsking();
  receiveV3Query(lower_);
  querier_->pendingRexmitIs(IpAddr(239, 9, 9, 9), true);
  receiveV3Query(lower_);
  EXPECT_TRUE(querier_->transitionToNonQuerier());
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(group_));
}

TEST_F(QuerierSmElection, AReportThatSettlesTheLastGroupEndsTheHandOver) {
  startAsking();
  receiveV3Query(lower_);
  receiveV1Report(group_);  // settles what was asked
  EXPECT_EQ(status_->state(), Status::querierStateNonQuerier);
  EXPECT_FALSE(querier_->transitionToNonQuerier());
}

TEST_F(QuerierSmElection, SilenceOfTheElectedQuerierIsAnsweredInItsOrder) {
  start();
  receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
  runFor(182.4);
  traces_.clear();
  watch(status_, "status");
  watch(Ptr<const QuerierSm>(querier_), "sm");
  runFor(0.1);
  EXPECT_THAT(
      journal_,
      ElementsAre("status.electedQuerierAddr 10.0.0.5", "status.state querierStateQuerier",
                  "sm.otherQuerierTimerState timerDisabled", "status.otherQuerierExpiryTime inf",
                  "status.robustness 2", "status.queryInterval 125", "sm.initialQuerySent false",
                  "sm.initialQuerySent true", "sm.sendPkt", "sm.writableCount 1",
                  "status.v3QueriesSent 1", "sm.queryIntervalTimerState timerRunning",
                  "status.generalQueryExpiryTime 1213.75", "status.queryResponseInterval 10"));
  const auto texts = traceTexts();
  ASSERT_GE(texts.size(), 2u);
  EXPECT_EQ(texts[0], "QuerierSm( vlan10 )::handleOtherQuerierTimer()");
  EXPECT_EQ(texts[1], "Make myself as elected querier.");
}

TEST_F(QuerierSmElection, TheFirstQueryAfterSilenceHasHalfTheDepartedResponseTime) {
  start();
  receiveV3Query(lower_, {.code = 60, .qrv = 3, .qqic = 60});
  runFor(183.0);
  ASSERT_EQ(sent_.size(), 1u);
  EXPECT_EQ(sent_[0].code(), 30u);
  EXPECT_EQ(status_->queryResponseInterval(), 10.0);
  runFor(31.25);
  ASSERT_EQ(sent_.size(), 2u);
  EXPECT_EQ(sent_[1].code(), 100u);
}

TEST_F(QuerierSmElection, SilenceDuringAHandOverEndsTheHandOver) {
  startAsking();
  receiveV3Query(lower_);
  ASSERT_TRUE(querier_->transitionToNonQuerier());
  querier_->handleOtherQuerierTimer();
  EXPECT_FALSE(querier_->transitionToNonQuerier());
  EXPECT_EQ(status_->state(), Status::querierStateQuerier);
}

TEST_F(QuerierSmElection, ASwitchedOffQuerierStillFollowsTheElectedOne) {
  start();
  config_->sendQueryIs(false);
  receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
  expectFollowing(lower_, 182.5);
  EXPECT_EQ(status_->state(), Status::querierStateNonQuerier);
}

TEST_F(QuerierSmElection, ConfiguredForVersion1ThereIsNoElection) {
  config_->querierVersionIs(igmpVersion1);
  start();
  traces_.clear();
  receiveV3Query(lower_);
  receiveV1Query(lower_);
  EXPECT_EQ(status_->electedQuerierAddr(), own_);
  EXPECT_THAT(electionTraces(), IsEmpty());
}

}  // namespace

}  // namespace Gmp::Igmp::testing
