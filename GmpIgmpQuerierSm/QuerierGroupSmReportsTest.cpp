// Version 1 and 2 reports and leaves.
#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

using QuerierGroupSmReportsTest = GroupBench;

TEST_F(QuerierGroupSmReportsTest, aVersion1ReportMakesTheGroupExcludeWithoutSources) {
  const Ptr<Sm> sm = include({{s1_, 50.0}, {s2_, 60.0}});
  sm->rexmitSourceIs(s1_, true);
  receiveV1Report(group_);
  EXPECT_EQ(compatibility(), igmpVersion1);
  EXPECT_EQ(filterMode(), filterModeExclude);
  EXPECT_TRUE(sm->source().empty());
  EXPECT_TRUE(groupStatus(group_)->source().empty());
  EXPECT_TRUE(sm->rexmitSource().empty());
  EXPECT_EQ(groupTimer(), gmi_);
  EXPECT_EQ(sm->v1MembershipTimerState(), timerRunning);
  EXPECT_EQ(sm->v2MembershipTimerState(), timerDisabled);
  EXPECT_EQ(groupStatus(group_)->lastReporter(), host_);
  EXPECT_EQ(status_->joins(), 1U);
}

TEST_F(QuerierGroupSmReportsTest, aVersion1ReportTakesItsStepsInOrder) {
  const Ptr<Sm> sm = include({{s1_, 50.0}});
  sm->rexmitGroupQueryIs(1);
  sm->doSetTimer(Sm::rexmitTimerId, 1.0);
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  receiveV1Report(group_);
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("status.compatibilityMode igmpVersion1", "sm.v1MembershipTimerState timerRunning",
                  "status.filterMode filterModeExclude", "status.lastReporter 10.0.0.77",
                  "status.source 10.7.0.1", "sm.source 10.7.0.1", "sm.membershipTimerExpiry 1260",
                  "sm.membershipTimerState timerRunning", "status.expiryTime 1260",
                  "sm.rexmitTimerExpiry inf", "sm.rexmitTimerState timerDisabled",
                  "sm.rexmitGroupQuery 0"));
}

TEST_F(QuerierGroupSmReportsTest, aVersion2ReportTakesItsStepsInOrder) {
  const Ptr<Sm> sm = include({{s1_, 50.0}});
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  receiveV2Report(group_);
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("status.lastReporter 10.0.0.77", "status.compatibilityMode igmpVersion2",
                  "sm.v2MembershipTimerState timerRunning", "status.filterMode filterModeExclude",
                  "status.source 10.7.0.1", "sm.source 10.7.0.1", "sm.membershipTimerExpiry 1260",
                  "sm.membershipTimerState timerRunning", "status.expiryTime 1260"));
}

TEST_F(QuerierGroupSmReportsTest, eachHandlerTracesItsEntry) {
  exclude({});
  receiveV1Report(group_);
  receiveLeave(group_);
  receiveV2Report(group_);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxV1Report()"), 1U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxLeave()"), 1U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxV2Report()"), 1U);
}

TEST_F(QuerierGroupSmReportsTest, aVersion2ReportLeavesVersion1CompatibilityButStartsItsTimer) {
  const Ptr<Sm> sm = exclude({}, 100.0, igmpVersion1);
  receiveV2Report(group_);
  EXPECT_EQ(compatibility(), igmpVersion1);
  EXPECT_EQ(sm->v2MembershipTimerState(), timerRunning);
}

TEST_F(QuerierGroupSmReportsTest, aVersion2ReportMakesAnUnknownModeVersion2) {
  exclude({}, 100.0, igmpVersionUnknown);
  receiveV2Report(group_);
  EXPECT_EQ(compatibility(), igmpVersion2);
}

TEST_F(QuerierGroupSmReportsTest, theOlderHostIntervalIsTheGroupMembershipIntervalInEffect) {
  status_->robustnessIs(3);
  status_->queryIntervalIs(60.0);
  status_->queryResponseIntervalIs(5.0);  // 185 s
  const Ptr<Sm> sm = exclude({}, never);
  receiveV1Report(group_);
  receiveV2Report(group_);
  EXPECT_EQ(groupTimer(), 185.0);
  sm->doSetTimer(Sm::membershipTimerId, never);
  runFor(184.9);
  EXPECT_EQ(sm->v1MembershipTimerState(), timerRunning);
  EXPECT_EQ(sm->v2MembershipTimerState(), timerRunning);
  runFor(0.1);
  EXPECT_EQ(sm->v1MembershipTimerState(), timerDisabled);
  EXPECT_EQ(sm->v2MembershipTimerState(), timerDisabled);
  EXPECT_EQ(compatibility(), igmpVersion3);
}

TEST_F(QuerierGroupSmReportsTest, aVersion1ReportStopsAGroupQuerySequence) {
  const Ptr<Sm> sm = exclude({});
  receiveLeave(group_);
  ASSERT_EQ(sm->rexmitGroupQuery(), 2U);
  receiveV1Report(group_);
  EXPECT_EQ(sm->rexmitGroupQuery(), 0U);
  EXPECT_EQ(sm->rexmitTimerState(), timerDisabled);
  runFor(10.0);
  EXPECT_TRUE(takeSent().empty());
  EXPECT_TRUE(groupExists());
}

TEST_F(QuerierGroupSmReportsTest, aVersion2ReportDoesNotStopAGroupQuerySequence) {
  const Ptr<Sm> sm = exclude({});
  receiveLeave(group_);
  receiveV2Report(group_);
  EXPECT_EQ(sm->rexmitGroupQuery(), 2U);
  EXPECT_EQ(rexmitTimer(), 0.0);
  EXPECT_EQ(groupTimer(), gmi_);
  runFor(10.0);
  EXPECT_EQ(takeSent().size(), 2U);
  EXPECT_TRUE(groupExists());
}

TEST_F(QuerierGroupSmReportsTest, aReportKeepsTheGroupAliveUntilTheHostsFallSilent) {
  receiveV2Report(group_);
  runFor(259.0);
  receiveV2Report(group_);
  runFor(259.9);
  EXPECT_TRUE(groupExists());
  runFor(0.1);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmReportsTest, aLeaveInVersion1CompatibilityChangesNothing) {
  const Ptr<Sm> sm = exclude({{s1_, 50.0}}, 100.0, igmpVersion1);
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  watch(sourceSm(s1_), "source");
  receiveLeave(group_);
  EXPECT_TRUE(takeJournal().empty());
  EXPECT_EQ(wheel_->armed(), 2U);
  EXPECT_EQ(status_->v2LeaveReceived(), 1U);
}

TEST_F(QuerierGroupSmReportsTest, aLeaveLowersGroupAndSourceTimersAndQueries) {
  const Ptr<Sm> sm = exclude({{s1_, 50.0}, {s2_, never}});
  receiveLeave(group_);
  EXPECT_EQ(groupTimer(), lmqt_);
  EXPECT_EQ(timerOf(s1_), lmqt_);
  EXPECT_EQ(timerOf(s2_), never);
  EXPECT_THAT(rexmitSources(), ElementsAre(s1_));
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 2U);
  EXPECT_EQ(sm->rexmitGroupQuery(), 2U);
  EXPECT_EQ(rexmitTimer(), 0.0);
  EXPECT_TRUE(takeSent().empty()) << "the first query leaves with the next turn of the wheel";
}

TEST_F(QuerierGroupSmReportsTest, aLeaveTakesItsStepsInOrder) {
  const Ptr<Sm> sm = exclude({{s1_, 50.0}});
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  watch(sourceSm(s1_), "source");
  receiveLeave(group_);
  EXPECT_THAT(takeJournal(),
              ElementsAre("source.sourceTimerExpiry 1002", "source.rexmits 2",
                          "sm.rexmitSource 10.7.0.1", "sm.rexmitGroupQuery 2",
                          "sm.membershipTimerExpiry 1002", "status.expiryTime 1002",
                          "sm.rexmitTimerExpiry 1000", "sm.rexmitTimerState timerRunning"));
}

TEST_F(QuerierGroupSmReportsTest, aLeaveDoesNotMakeItsSenderTheLastReporter) {
  exclude({});
  receiveV2Report(group_, host_);
  receiveLeave(group_, higher_);
  EXPECT_EQ(groupStatus(group_)->lastReporter(), host_);
}

TEST_F(QuerierGroupSmReportsTest, aLeaveLeavesAGroupTimerAlreadyBelowTheLimitAlone) {
  for (const Seconds left : {lmqt_, 1.5, 0.25}) {
    const Ptr<Sm> sm = exclude({}, left);
    sm->rexmitGroupQueryIs(0);
    receiveLeave(group_);
    EXPECT_EQ(groupTimer(), left);
    EXPECT_EQ(tracedBegin("Setting membershipTimerId"), 0U) << "not even to the same time";
    EXPECT_EQ(sm->rexmitGroupQuery(), 2U);
    EXPECT_EQ(rexmitTimer(), 0.0);
  }
}

TEST_F(QuerierGroupSmReportsTest, aLeaveWithACountOfZeroEndsTheGroupAtOnce) {
  config_->lastMemberQueryCountIs(0);
  const Ptr<Sm> sm = exclude({{s1_, 50.0}});
  receiveLeave(group_);
  EXPECT_EQ(sm->rexmitGroupQuery(), 0U);
  EXPECT_EQ(groupTimer(), 0.0);
  EXPECT_EQ(timerOf(s1_), 0.0);
  EXPECT_TRUE(rexmitSources().empty());
  runFor(0.0);
  EXPECT_FALSE(groupExists());
  EXPECT_TRUE(takeSent().empty());
}

TEST_F(QuerierGroupSmReportsTest, aSecondLeaveRestartsTheGroupCount) {
  const Ptr<Sm> sm = exclude({});
  receiveLeave(group_);
  runFor(0.5);
  EXPECT_EQ(sm->rexmitGroupQuery(), 1U);
  receiveLeave(group_);
  EXPECT_EQ(sm->rexmitGroupQuery(), 2U);
  EXPECT_EQ(groupTimer(), 1.5);
  runFor(0.0);
  EXPECT_EQ(takeSent().size(), 2U);
}

TEST_F(QuerierGroupSmReportsTest, aLeaveInIncludeModeAsksAboutSourcesOnly) {
  const Ptr<Sm> sm = include({{s1_, 50.0}});
  receiveLeave(group_);
  EXPECT_EQ(sm->rexmitGroupQuery(), 0U);
  EXPECT_EQ(groupTimer(), never);
  EXPECT_EQ(timerOf(s1_), lmqt_);
  EXPECT_EQ(rexmitTimer(), 0.0);
  runFor(0.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_THAT(sent[0].sources(), ElementsAre(s1_));
}

TEST_F(QuerierGroupSmReportsTest, aLeaveInIncludeModeWithoutSourcesFindsNothingToSend) {
  getOrCreateGroupSm(querier_, group_);
  receiveLeave(group_);
  EXPECT_EQ(rexmitTimer(), 0.0);
  runFor(0.0);
  EXPECT_TRUE(takeSent().empty());
  EXPECT_EQ(rexmitTimer(), never);
  EXPECT_EQ(traced("Disabling timer, since there are no pending retransmissions"), 1U);
}

TEST_F(QuerierGroupSmReportsTest, unansweredLeavesEndTheGroupAfterTheLastMemberQueryTime) {
  exclude({});
  receiveLeave(group_);
  runFor(1.99);
  EXPECT_TRUE(groupExists());
  runFor(0.01);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmReportsTest, aLeaveQueriesEachSourceThatStaysWhileOthersEnd) {
  const Ptr<QuerierGroupSm> sm = exclude({});
  std::vector<IpAddr> staying;
  std::vector<IpAddr> going;
  std::vector<std::unique_ptr<Once<QuerierSourceStatus>>> notifiees;
  const auto removeThem = [&] {
    for (const IpAddr addr : going) sm->sourceDel(addr);
  };
  for (U8 i = 0; i < 100; ++i) {
    const IpAddr addr(10, 7, 1, i);
    getOrCreateSourceSm(sm, addr)->doSetTimer(200.0);
    (i % 2 == 0 ? staying : going).push_back(addr);
    notifiees.push_back(
        std::make_unique<Once<QuerierSourceStatus>>(sourceStatus(addr), "expiryTime", removeThem));
  }
  receiveLeave(group_);
  EXPECT_EQ(rexmitSources(), staying);
  EXPECT_EQ(sm->source().size(), staying.size());
}

TEST_F(QuerierGroupSmReportsTest, aQuerierReleasedWhileAReportIsHandledFinishesIt) {
  const Ptr<Sm> sm = include({{s1_, 50.0}});
  const Ptr<QuerierGroupStatus> status = sm->groupStatus();
  Once<QuerierGroupStatus> once(status, "filterMode", [this] { release(); });
  receiveV2Report(group_);
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(status->expiryTime(), begin_ + gmi_);
  EXPECT_EQ(status_->v2ReportReceived(), 1U);
  EXPECT_EQ(wheel_->armed(), 0U);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
