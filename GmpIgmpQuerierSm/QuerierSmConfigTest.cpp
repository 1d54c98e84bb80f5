#include "Once.h"
#include "TestBench.h"

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Status = QuerierStatus;

namespace {

class QuerierSmConfig : public TestBench {
 protected:
  void startNonQuerier() {
    start();
    receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
    ASSERT_EQ(status_->state(), Status::querierStateNonQuerier);
    traces_.clear();
  }
  void startInitial() {
    config_->sendQueryIs(false);
    start();
    ASSERT_EQ(status_->state(), Status::querierStateInitial);
    traces_.clear();
  }
  // The effective startup query interval of those settings.
  Seconds startupInterval(U32 byDefault, Seconds configured, Seconds queryInterval) {
    setup_.startupQueryIntervalDefault = byDefault;
    config_->startupQueryIntervalIs(configured);
    config_->queryIntervalIs(queryInterval);
    restart();
    return status_->startupQueryInterval();
  }
};

TEST_F(QuerierSmConfig, ResponseIntervalIsTracedAndTakenOver) {
  start();
  traces_.clear();
  watch(status_, "status");
  config_->queryResponseIntervalIs(5.5);
  EXPECT_THAT(traceTexts(), ElementsAre("QuerierSm( vlan10 )::handleQueryResponseInterval()",
                                        "QuerierSm( vlan10 ): query response interval is 5.5"));
  EXPECT_THAT(journal_, ElementsAre("status.queryResponseInterval 5.5"));
}

TEST_F(QuerierSmConfig, RobustnessIsTracedAndTakenOverAndTouchesNoTimer) {
  start();
  traces_.clear();
  watch(status_, "status");
  config_->robustnessIs(4);
  EXPECT_THAT(traceTexts(), ElementsAre("QuerierSm( vlan10 )::handleRobustness()",
                                        "QuerierSm( vlan10 ): robustness is 4"));
  EXPECT_THAT(journal_, ElementsAre("status.robustness 4"));
}

TEST_F(QuerierSmConfig, VersionIsTakenOverAndPassedToEveryGroup) {
  start();
  receiveV2Report(group_);
  receiveRecord(4, group2_);
  traces_.clear();
  config_->querierVersionIs(igmpVersion1);
  EXPECT_EQ(traced("QuerierSm( vlan10 )::handleQuerierVersion()"), 1u);
  EXPECT_EQ(traced("QuerierSm( vlan10 ): querier version is igmpVersion1"), 1u);
  EXPECT_EQ(status_->querierVersion(), igmpVersion1);
  for (const auto& [group, sm] : querier_->groupSm()) {
    EXPECT_EQ(groupStatus(group)->compatibilityMode(), igmpVersion1) << group.stringValue();
  }
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleQuerierVersion()"), 1u);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.2 )::handleQuerierVersion()"), 1u);
}

TEST_F(QuerierSmConfig, GroupsGetAVersionInTheOrderOfTheMap) {
  start();
  for (U8 i = 1; i <= 20; ++i) receiveV2Report(IpAddr(239, 1, 1, i));
  traces_.clear();
  config_->querierVersionIs(igmpVersion2);
  std::vector<std::string> expected;
  for (const auto& [group, sm] : querier_->groupSm()) {
    expected.push_back("QuerierGroupSm( " + group.stringValue() + " )::handleQuerierVersion()");
  }
  std::vector<std::string> passed;
  for (const std::string& text : traceTexts()) {
    if (text.starts_with("QuerierGroupSm(")) passed.push_back(text);
  }
  EXPECT_EQ(passed, expected);
}

TEST_F(QuerierSmConfig, VersionIsTakenOverInEveryState) {
  startNonQuerier();
  config_->querierVersionIs(igmpVersion2);
  EXPECT_EQ(status_->querierVersion(), igmpVersion2);
}

TEST_F(QuerierSmConfig, QueryIntervalOnTheQuerierAsksAtOnceAndArmsAnew) {
  start();
  runFor(200.0);  // past the startup queries
  takeSent();
  traces_.clear();
  config_->queryIntervalIs(60.0);
  ASSERT_EQ(sent_.size(), 1u);
  EXPECT_EQ(sent_[0].at, now());
  EXPECT_EQ(sent_[0].qqic(), 60u);
  EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 60.0);
  const auto texts = traceTexts();
  ASSERT_GE(texts.size(), 3u);
  EXPECT_EQ(texts[0], "QuerierSm( vlan10 )::handleQueryInterval()");
  EXPECT_EQ(texts[1], "QuerierSm( vlan10 ): query interval is 60");
  EXPECT_EQ(texts[2], "QuerierSm( vlan10 )::handleQueryIntervalTimer()");
}

TEST_F(QuerierSmConfig, QueryIntervalOutsideTheQuerierRoleSendsNothing) {
  startInitial();
  config_->queryIntervalIs(60.0);
  EXPECT_THAT(sent_, IsEmpty());
  EXPECT_EQ(status_->queryInterval(), 60.0);
  EXPECT_EQ(wheel_->armed(), 0u);
}

TEST_F(QuerierSmConfig, ANonQuerierKeepsTheValuesOfTheElectedOne) {
  startNonQuerier();
  watch(status_, "status");
  config_->robustnessIs(6);
  config_->queryIntervalIs(77.0);
  config_->queryResponseIntervalIs(7.0);
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_EQ(traced("QuerierSm( vlan10 ): robustness is 6"), 1u);
  EXPECT_EQ(traced("QuerierSm( vlan10 ): query interval is 77"), 1u);
  EXPECT_EQ(traced("QuerierSm( vlan10 ): query response interval is 7"), 1u);
  EXPECT_THAT(sent_, IsEmpty());
}

TEST_F(QuerierSmConfig, ANonQuerierFollowsTheConfiguredStartupInterval) {
  startNonQuerier();
  config_->startupQueryIntervalIs(20.0);
  EXPECT_EQ(status_->startupQueryInterval(), 20.0);
}

TEST_F(QuerierSmConfig, InTheInitialStateEveryValueFollows) {
  startInitial();
  watch(status_, "status");
  config_->robustnessIs(6);
  config_->queryIntervalIs(77.0);
  config_->queryResponseIntervalIs(7.0);
  config_->startupQueryIntervalIs(20.0);
  config_->querierVersionIs(igmpVersion2);
  EXPECT_THAT(journal_,
              ElementsAre("status.robustness 6", "status.queryInterval 77",
                          "status.queryResponseInterval 7", "status.startupQueryInterval 20",
                          "status.querierVersion igmpVersion2"));
}

TEST_F(QuerierSmConfig, AStartupIntervalAtItsDefaultIsAQuarterOfTheQueryInterval) {
  EXPECT_EQ(startupInterval(30, 30.0, 100.0), 25.0);
  traces_.clear();
  config_->queryIntervalIs(60.0);
  EXPECT_EQ(status_->startupQueryInterval(), 15.0);
  EXPECT_EQ(traced("QuerierSm( vlan10 ): startup query interval is 15"), 1u);
}

TEST_F(QuerierSmConfig, AStartupIntervalAtItsDefaultIsNotWrittenByItsOwnHandler) {
  setup_.startupQueryIntervalDefault = 30;
  config_->startupQueryIntervalIs(20.0);
  config_->sendQueryIs(false);
  start();
  traces_.clear();
  config_->startupQueryIntervalIs(30.0);
  EXPECT_EQ(status_->startupQueryInterval(), 20.0);  // until the query interval is handled
  EXPECT_THAT(
      traceTexts(),
      ElementsAre("QuerierSm( vlan10 )::handleStartupQueryInterval()",
                  "QuerierSm( vlan10 ): startup query interval is configured as or defaults to 30",
                  "QuerierSm( vlan10 ): effective startup query interval is 20"));
}

TEST_F(QuerierSmConfig, AStartupIntervalOfZeroIsAQuarterOfTheQueryInterval) {
  EXPECT_EQ(startupInterval(30, 0.0, 100.0), 25.0);
}

TEST_F(QuerierSmConfig, AStartupIntervalOfZeroStaysWhenTheQueryIntervalChanges) {
  startupInterval(30, 0.0, 100.0);
  config_->queryIntervalIs(60.0);
  EXPECT_EQ(status_->startupQueryInterval(), 25.0);
}

TEST_F(QuerierSmConfig, AnotherStartupIntervalCountsAsItIs) {
  EXPECT_EQ(startupInterval(30, 20.0, 100.0), 20.0);
  config_->queryIntervalIs(60.0);
  EXPECT_EQ(status_->startupQueryInterval(), 20.0);
}

TEST_F(QuerierSmConfig, WithoutADefaultTheStartupIntervalCountsAsItIsUnlessZero) {
  EXPECT_EQ(startupInterval(0, 30.0, 100.0), 30.0);
  EXPECT_EQ(startupInterval(0, 0.0, 100.0), 25.0);
}

TEST_F(QuerierSmConfig, TheDefaultIsComparedAsANumberNotRounded) {
  EXPECT_EQ(startupInterval(30, 30.25, 100.0), 30.25);
}

TEST_F(QuerierSmConfig, AChangedStartupIntervalArmsNoTimer) {
  start();
  const Seconds next = status_->generalQueryExpiryTime();
  config_->startupQueryIntervalIs(20.0);
  EXPECT_EQ(status_->generalQueryExpiryTime(), next);
  EXPECT_THAT(sent_, IsEmpty());
}

TEST_F(QuerierSmConfig, SwitchingSendingOffEndsTheRole) {
  start();
  traces_.clear();
  watch(status_, "status");
  config_->sendQueryIs(false);
  EXPECT_THAT(journal_, ElementsAre("status.generalQueryExpiryTime inf",
                                    "status.state querierStateNonQuerier"));
  EXPECT_EQ(status_->otherQuerierExpiryTime(), never);
  EXPECT_EQ(status_->electedQuerierAddr(), own_);
  EXPECT_EQ(traced("QuerierSm( vlan10 )::handleSendQuery()"), 1u);
  runFor(1000.0);
  EXPECT_THAT(sent_, IsEmpty());
}

TEST_F(QuerierSmConfig, SwitchingSendingOffDuringAHandOverStopsBothTimers) {
  start();
  receiveRecord(4, group_);
  receiveLeave(group_);
  receiveV3Query(lower_);
  ASSERT_TRUE(querier_->transitionToNonQuerier());
  ASSERT_NE(status_->otherQuerierExpiryTime(), never);
  config_->sendQueryIs(false);
  EXPECT_EQ(status_->state(), Status::querierStateNonQuerier);
  EXPECT_EQ(status_->otherQuerierExpiryTime(), never);
  EXPECT_EQ(status_->generalQueryExpiryTime(), never);
}

TEST_F(QuerierSmConfig, SwitchingSendingOnAgainTakesTheRoleAfterARandomDelay) {
  start();
  config_->sendQueryIs(false);
  watch(status_, "status");
  config_->sendQueryIs(true);
  const Seconds next = status_->generalQueryExpiryTime();
  EXPECT_THAT(journal_, ElementsAre("status.state querierStateQuerier",
                                    "status.generalQueryExpiryTime " + Mox::textOf(next)));
  EXPECT_GE(next, now());
  EXPECT_LT(next, now() + 10.0);
}

TEST_F(QuerierSmConfig, SwitchingSendingOffOutsideTheRoleDoesNothing) {
  startNonQuerier();
  watch(status_, "status");
  config_->sendQueryIs(false);
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_EQ(status_->otherQuerierExpiryTime(), now() + 182.5);
}

TEST_F(QuerierSmConfig, SwitchingSendingOnInTheInitialStateDoesNothing) {
  startInitial();
  watch(status_, "status");
  config_->sendQueryIs(true);
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_EQ(traced("QuerierSm( vlan10 )::handleSendQuery()"), 1u);
  EXPECT_EQ(status_->state(), Status::querierStateInitial);
}

TEST_F(QuerierSmConfig, SwitchingSendingOffActsBeforeTheInstanceIsInitializedToo) {
  start();
  querier_->initializedIs(false);
  config_->sendQueryIs(false);
  EXPECT_EQ(status_->state(), Status::querierStateNonQuerier);
}

TEST_F(QuerierSmConfig, AllGroupsMayEndWhenTheFirstGetsANewVersion) {
  start();
  std::vector<std::unique_ptr<Once<QuerierGroupStatus>>> notifiees;
  for (U8 i = 0; i < 100; ++i) {
    const IpAddr group(239, 2, 0, i);
    receiveRecord(4, group);
    notifiees.push_back(std::make_unique<Once<QuerierGroupStatus>>(
        groupStatus(group), "compatibilityMode", [&] { querier_->groupSmDelAll(); }));
  }
  config_->querierVersionIs(igmpVersion2);
  EXPECT_TRUE(querier_->groupSm().empty());
  EXPECT_EQ(std::count_if(notifiees.begin(), notifiees.end(), [](auto& l) { return l->acted(); }),
            1);
}

TEST_F(QuerierSmConfig, OtherAttributesHaveNoHandler) {
  start();
  watch(status_, "status");
  watch(Ptr<const QuerierSm>(querier_), "sm");
  traces_.clear();
  config_->startupQueryCountIs(9);
  config_->lastMemberQueryIntervalIs(9.0);
  config_->lastMemberQueryCountIs(9);
  config_->addRandomDelayToTimerIs(true);
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_THAT(traceTexts(), IsEmpty());
}

TEST_F(QuerierSmConfig, ValuesAreTakenAsTheyAre) {
  start();
  config_->robustnessIs(0);
  config_->queryResponseIntervalIs(-1.0);
  EXPECT_EQ(status_->robustness(), 0u);
  EXPECT_EQ(status_->queryResponseInterval(), -1.0);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
