#include "TestBench.h"

#include <limits>

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Status = QuerierStatus;

namespace {

class QuerierSmLifecycle : public TestBench {
 protected:
  void configureUnusualValues() {
    config_->queryResponseIntervalIs(7.0);
    config_->robustnessIs(3);
    config_->querierVersionIs(igmpVersion1);
    config_->queryIntervalIs(60.0);
    config_->startupQueryIntervalIs(20.0);
  }
  // A handler that opens with this trace ran at the next turn first.
  std::string firstHandler() const {
    for (const std::string& text : traceTexts()) {
      const size_t at = text.find("::handle");
      if (at != std::string::npos) return text.substr(at + 2);
    }
    return "";
  }
};

TEST_F(QuerierSmLifecycle, StartPublishesTheEffectiveValuesInTheirOrder) {
  configureUnusualValues();
  config_->sendQueryIs(false);
  watch(status_, "status");
  start();
  EXPECT_THAT(journal_, ElementsAre("status.queryResponseInterval 7", "status.robustness 3",
                                    "status.querierVersion igmpVersion1", "status.queryInterval 60",
                                    "status.startupQueryInterval 20"));
}

TEST_F(QuerierSmLifecycle, StartWithSendQueryThenTakesTheRole) {
  watch(status_, "status");
  start();
  const Seconds first = status_->generalQueryExpiryTime();
  EXPECT_THAT(
      journal_,
      ElementsAre("status.querierVersion igmpVersion3", "status.electedQuerierAddr 10.0.0.5",
                  "status.otherQuerierExpiryTime inf", "status.state querierStateQuerier",
                  "status.generalQueryExpiryTime " + Mox::textOf(first)));
  EXPECT_GE(first, begin_);
  EXPECT_LT(first, begin_ + 10.0);
}

TEST_F(QuerierSmLifecycle, StartTracesItsHandlersInTheirOrder) {
  config_->sendQueryIs(false);
  start();
  const std::string sm = "QuerierSm( vlan10 )";
  EXPECT_THAT(traceTexts(),
              ElementsAre(sm + "::handleInitialized()", sm + "::handleQueryResponseInterval()",
                          sm + ": query response interval is 10", sm + "::handleRobustness()",
                          sm + ": robustness is 2", sm + "::handleQuerierVersion()",
                          sm + ": querier version is igmpVersion3", sm + "::handleQueryInterval()",
                          sm + ": query interval is 125", sm + "::handleStartupQueryInterval()",
                          sm + ": startup query interval is configured as or defaults to 0",
                          sm + ": effective startup query interval is 31.25",
                          sm + "::handleQuerierGroupStatus()",
                          sm + "::handleQuerierGroupStatus(): finished processing groups"));
}

TEST_F(QuerierSmLifecycle, WithoutSendQueryItStaysInitialAndNoTimerRuns) {
  config_->sendQueryIs(false);
  start();
  EXPECT_EQ(status_->state(), Status::querierStateInitial);
  EXPECT_EQ(wheel_->armed(), 0u);
  runFor(10000.0);
  EXPECT_THAT(sent_, IsEmpty());
  EXPECT_EQ(status_->electedQuerierAddr(), IpAddr());
}

TEST_F(QuerierSmLifecycle, ConstructionStoresItsArgumentsAndTheInitialValues) {
  config_->sendQueryIs(false);
  setup_.mtu = 9000;
  setup_.startupQueryIntervalDefault = 30;
  setup_.debugYieldAfterOne = true;
  const QuerierSm& sm = start();
  EXPECT_EQ(sm.name(), Mox::Name("vlan10"));
  EXPECT_EQ(sm.querierConfig(), config_);
  EXPECT_EQ(sm.querierStatus(), status_);
  EXPECT_EQ(sm.ipAddr(), own_);
  EXPECT_EQ(sm.mtu(), 9000u);
  EXPECT_EQ(sm.startupQueryIntervalDefault(), 30u);
  EXPECT_TRUE(sm.debugYieldAfterOne());
  EXPECT_EQ(sm.mcastBoundaryIntfStatus(), nullptr);
  EXPECT_EQ(sm.otherQuerierTimerState(), timerDisabled);
  EXPECT_EQ(sm.queryIntervalTimerState(), timerDisabled);
  EXPECT_FALSE(sm.transitionToNonQuerier());
  EXPECT_TRUE(sm.pendingRexmit().empty());
  EXPECT_TRUE(sm.initialQuerySent());
  EXPECT_EQ(sm.dstGroup(), IpAddr());
  EXPECT_EQ(sm.sendPkt(), nullptr);
  EXPECT_EQ(sm.writableCount(), 0u);
  EXPECT_TRUE(sm.groupSm().empty());
  EXPECT_EQ(sm.initGroupStatusBookmark(), IpAddr());
  EXPECT_EQ(sm.initGroupStatusTimerMin(), never);
  EXPECT_EQ(sm.attrLogSm(), nullptr);
  EXPECT_EQ(sm.pktSrc(), IpAddr());
  EXPECT_TRUE(sm.initialized());
}

TEST_F(QuerierSmLifecycle, AttributesStandInTheOrderOfTheirDeclaration) {
  std::vector<std::string> names;
  QuerierSm::attributes.forEach([&](Mox::AttrId, const auto& row) { names.push_back(row.name); });
  EXPECT_THAT(
      names,
      ElementsAre("name", "querierConfig", "querierStatus", "ipAddr", "mtu",
                  "startupQueryIntervalDefault", "mcastBoundaryIntfStatus", "otherQuerierTimer",
                  "otherQuerierTimerState", "transitionToNonQuerier", "pendingRexmit",
                  "initialQuerySent", "dstGroup", "sendPkt", "writableCount", "groupSm",
                  "queryIntervalTimer", "queryIntervalTimerState", "initGroupStatusBookmark",
                  "initGroupStatusTimer", "attrLogSm", "debugYieldAfterOne", "pktSrc",
                  "initialized", "handleInitialized", "becomeQuerier", "clearCounters", "doRxPkt"));
}

TEST_F(QuerierSmLifecycle, SettersNotifyOfAChangeOnceAndNotOfTheSameValue) {
  QuerierSm& sm = start();
  watch(Ptr<const QuerierSm>(&sm), "sm");
  const auto boundary = makePtr<Ilvo::IntfBoundaryStatus>();
  const auto pkt = makePtr<Ilvo::Pkt>();
  giveAttrLog();
  for (int round = 0; round < 2; ++round) {
    sm.ipAddrIs(lower_);
    sm.mtuIs(576);
    sm.startupQueryIntervalDefaultIs(31);
    sm.mcastBoundaryIntfStatusIs(boundary);
    sm.otherQuerierTimerStateIs(timerRunning);
    sm.transitionToNonQuerierIs(true);
    sm.initialQuerySentIs(false);
    sm.dstGroupIs(group_);
    sm.sendPktIs(pkt);
    sm.writableCountIs(7);
    sm.queryIntervalTimerStateIs(timerExpired);
    sm.initGroupStatusBookmarkIs(group_);
    sm.attrLogSmIs(monitor_);
    sm.debugYieldAfterOneIs(true);
    sm.pktSrcIs(host_);
    sm.initializedIs(false);
  }
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("sm.attrLogSm", "sm.ipAddr 10.0.0.2", "sm.mtu 576",
                  "sm.startupQueryIntervalDefault 31", "sm.mcastBoundaryIntfStatus",
                  "sm.otherQuerierTimerState timerRunning", "sm.transitionToNonQuerier true",
                  "sm.initialQuerySent false", "sm.dstGroup 239.1.1.1", "sm.sendPkt",
                  "sm.writableCount 7", "sm.queryIntervalTimerState timerExpired",
                  "sm.initGroupStatusBookmark 239.1.1.1", "sm.debugYieldAfterOne true",
                  "sm.pktSrc 10.0.0.77", "sm.initialized false"));
}

TEST_F(QuerierSmLifecycle, WritableCountNotifiesOfEachIncrementAndWraps) {
  QuerierSm& sm = start();
  watch(Ptr<const QuerierSm>(&sm), "sm");
  sm.writableCountIs(std::numeric_limits<U32>::max());
  EXPECT_EQ(sm.writableCountInc(1), 0u);
  EXPECT_THAT(takeJournal(), ElementsAre("sm.writableCount 4294967295", "sm.writableCount 0"));
}

TEST_F(QuerierSmLifecycle, PrintsAsItsInterface) {
  std::string text;
  appendText(text, tracePart(start()));
  EXPECT_EQ(text, "QuerierSm( vlan10 )");
}

TEST_F(QuerierSmLifecycle, TimerIdsHaveTheirNumbersAndNames) {
  EXPECT_EQ(QuerierSm::queryIntervalTimerId, 0u);
  EXPECT_EQ(QuerierSm::otherQuerierTimerId, 1u);
  EXPECT_EQ(stringValue(QuerierSm::queryIntervalTimerId), "queryIntervalTimerId");
  EXPECT_EQ(stringValue(QuerierSm::otherQuerierTimerId), "otherQuerierTimerId");
}

TEST_F(QuerierSmLifecycle, StartWithoutAConfigurationIsFatal) {
  EXPECT_DEATH(querierSmFactory(nullptr, status_, own_, 1500, 0, wheel_, wheel_, wheel_, false),
               "Assertion 'Ptr is not null' failed");
}

TEST_F(QuerierSmLifecycle, HandlersDoNothingBeforeTheInstanceIsInitialized) {
  QuerierSm& sm = start();
  sm.initializedIs(false);
  watch(status_, "status");
  watch(Ptr<const QuerierSm>(&sm), "sm");
  traces_.clear();
  config_->queryIntervalIs(99.0);
  config_->queryResponseIntervalIs(9.0);
  config_->robustnessIs(5);
  config_->startupQueryIntervalIs(9.0);
  config_->querierVersionIs(igmpVersion1);
  sm.handleOtherQuerierTimer();
  sm.handleQueryIntervalTimer();
  sm.becomeQuerier();
  sm.handleQuerierGroupStatus();
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_THAT(traceTexts(), IsEmpty());
  EXPECT_THAT(sent_, IsEmpty());
}

TEST_F(QuerierSmLifecycle, AnInfiniteTimeDisablesATimer) {
  QuerierSm& sm = start();
  sm.doSetTimer(QuerierSm::otherQuerierTimerId, 5.0);
  traces_.clear();
  sm.doSetTimer(QuerierSm::otherQuerierTimerId, never);
  EXPECT_EQ(sm.otherQuerierTimerState(), timerDisabled);
  EXPECT_EQ(status_->otherQuerierExpiryTime(), never);
  EXPECT_THAT(traceTexts(),
              ElementsAre("QuerierSm( vlan10 )::doSetTimer( otherQuerierTimerId, inf )",
                          "Setting otherQuerierTimerId for vlan10 to expire in inf @ inf"));
  traces_.clear();
  runFor(20.0);
  EXPECT_EQ(traced("QuerierSm( vlan10 )::handleOtherQuerierTimer()"), 0u);
}

TEST_F(QuerierSmLifecycle, ZeroArmsATimerForNow) {
  QuerierSm& sm = start();
  sm.doSetTimer(QuerierSm::queryIntervalTimerId, 0.0);
  EXPECT_EQ(sm.queryIntervalTimerState(), timerRunning);
  EXPECT_EQ(status_->generalQueryExpiryTime(), begin_);
  EXPECT_EQ(traced("Setting queryIntervalTimerId for vlan10 to expire in 0 @ 1000"), 1u);
  runFor(0.0);
  EXPECT_EQ(sent_.size(), 1u);
}

TEST_F(QuerierSmLifecycle, TheLargestFiniteTimeStillCountsAsRunning) {
  QuerierSm& sm = start();
  sm.doSetTimer(QuerierSm::otherQuerierTimerId, std::numeric_limits<Seconds>::max());
  EXPECT_EQ(sm.otherQuerierTimerState(), timerRunning);
  EXPECT_EQ(status_->otherQuerierExpiryTime(), std::numeric_limits<Seconds>::max());
}

TEST_F(QuerierSmLifecycle, ArmingTwiceNotifiesOfTheStateOnceButArmsAgain) {
  QuerierSm& sm = start();
  silenceGeneralQueries();
  watch(Ptr<const QuerierSm>(&sm), "sm");
  sm.doSetTimer(QuerierSm::queryIntervalTimerId, 5.0);
  sm.doSetTimer(QuerierSm::otherQuerierTimerId, 5.0);
  sm.doSetTimer(QuerierSm::queryIntervalTimerId, 5.0);
  EXPECT_THAT(takeJournal(), ElementsAre("sm.queryIntervalTimerState timerRunning",
                                         "sm.otherQuerierTimerState timerRunning"));
  traces_.clear();
  runFor(5.0);
  EXPECT_EQ(firstHandler(), "handleOtherQuerierTimer()");  // equal times fire in order of arming
}

TEST_F(QuerierSmLifecycle, AnUnknownTimerIdIsFatal) {
  QuerierSm& sm = start();
  EXPECT_DEATH(sm.doSetTimer(static_cast<QuerierSm::TimerId>(2), 1.0),
               "GmpIgmpQuerierSm.tin:.*: doSetTimer: Assertion 'timer id' failed");
}

TEST_F(QuerierSmLifecycle, EachTimerRunsOnItsOwnWheel) {
  const auto other = makePtr<Obel::TimerWheel>(begin_);
  const auto query = makePtr<Obel::TimerWheel>(begin_);
  setup_.otherQuerierTimer = other;
  setup_.queryIntervalTimer = query;
  QuerierSm& sm = start();
  EXPECT_EQ(sm.otherQuerierTimer(), other);
  EXPECT_EQ(sm.queryIntervalTimer(), query);
  EXPECT_EQ(sm.initGroupStatusTimer(), wheel_);
  sm.doSetTimer(QuerierSm::otherQuerierTimerId, 5.0);
  EXPECT_EQ(other->armed(), 1u);
  EXPECT_EQ(query->armed(), 1u);
  EXPECT_EQ(wheel_->armed(), 0u);
  receiveV2Report(group_);
  EXPECT_EQ(query->armed(), 3u);  // the group's timers run beside the general queries'
}

TEST_F(QuerierSmLifecycle, TimersMoveToAnotherWheelWithTheirTime) {
  const auto other = makePtr<Obel::TimerWheel>(begin_);
  QuerierSm& sm = start();
  watch(Ptr<const QuerierSm>(&sm), "sm");
  sm.queryIntervalTimerIs(other);
  sm.queryIntervalTimerIs(other);
  EXPECT_EQ(wheel_->armed(), 0u);
  EXPECT_EQ(other->armed(), 1u);
  sm.otherQuerierTimerIs(other);
  sm.initGroupStatusTimerIs(other);
  EXPECT_THAT(takeJournal(), ElementsAre("sm.queryIntervalTimer", "sm.otherQuerierTimer",
                                         "sm.initGroupStatusTimer"));
  sm.doSetTimer(QuerierSm::otherQuerierTimerId, 5.0);
  EXPECT_EQ(other->armed(), 2u);
}

TEST_F(QuerierSmLifecycle, ClearCountersSetsTheFifteenCountersInTheirOrder) {
  QuerierSm& sm = start();
  for (const auto inc :
       {&Status::v1QueriesSentInc, &Status::v2QueriesSentInc, &Status::v3QueriesSentInc,
        &Status::v3GSQueriesSentInc, &Status::v3GSSQueriesSentInc, &Status::v1QueriesReceivedInc,
        &Status::v2QueriesReceivedInc, &Status::v3QueriesReceivedInc, &Status::v1ReportReceivedInc,
        &Status::v2ReportReceivedInc, &Status::v2LeaveReceivedInc, &Status::v3ReportReceivedInc,
        &Status::errorPacketReceivedInc, &Status::otherPacketReceivedInc,
        &Status::mcastBoundaryPktReceivedInc}) {
    (*status_.*inc)(3);
  }
  watch(status_, "status");
  traces_.clear();
  sm.clearCounters();
  EXPECT_THAT(traceTexts(), ElementsAre("QuerierSm( vlan10 )::clearCounters()",
                                        "QuerierSm( vlan10 ): Clearing counters for vlan10"));
  EXPECT_THAT(journal_, ElementsAre("status.v1QueriesSent 0", "status.v2QueriesSent 0",
                                    "status.v3QueriesSent 0", "status.v3GSQueriesSent 0",
                                    "status.v3GSSQueriesSent 0", "status.v1QueriesReceived 0",
                                    "status.v2QueriesReceived 0", "status.v3QueriesReceived 0",
                                    "status.v1ReportReceived 0", "status.v2ReportReceived 0",
                                    "status.v2LeaveReceived 0", "status.v3ReportReceived 0",
                                    "status.errorPacketReceived 0", "status.otherPacketReceived 0",
                                    "status.mcastBoundaryPktReceived 0"));
}

TEST_F(QuerierSmLifecycle, ClearCountersKeepsJoinsStateTimersAndGroups) {
  QuerierSm& sm = start();
  receiveV2Report(group_);
  const Seconds next = status_->generalQueryExpiryTime();
  sm.clearCounters();
  EXPECT_EQ(status_->joins(), 1u);
  EXPECT_EQ(status_->state(), Status::querierStateQuerier);
  EXPECT_EQ(status_->electedQuerierAddr(), own_);
  EXPECT_EQ(status_->generalQueryExpiryTime(), next);
  EXPECT_NE(groupSm(group_), nullptr);
  EXPECT_EQ(status_->v2ReportReceived(), 0u);
}

TEST_F(QuerierSmLifecycle, ClearCountersRunsTheStartupQueriesAgain) {
  QuerierSm& sm = start();
  runFor(200.0);
  takeSent();
  sm.clearCounters();
  runFor(300.0);
  ASSERT_GE(sent_.size(), 3u);
  EXPECT_DOUBLE_EQ(sent_[1].at - sent_[0].at, 31.25);
  EXPECT_DOUBLE_EQ(sent_[2].at - sent_[1].at, 125.0);
}

TEST_F(QuerierSmLifecycle, TheSameSeedGivesTheSameFirstDelay) {
  srand48(42);
  start();
  const Seconds first = status_->generalQueryExpiryTime();
  srand48(42);
  restart();
  silenceGeneralQueries();
  srand48(42);
  querier_->becomeQuerier();
  EXPECT_EQ(status_->generalQueryExpiryTime(), first);
  srand48(43);
  querier_->becomeQuerier();
  EXPECT_NE(status_->generalQueryExpiryTime(), first);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
