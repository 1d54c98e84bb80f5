// Version 3 records: the order of what each row publishes, the closing steps, traces, and the end
// of a group inside its own handler. What each row does in all its cases stands in the table's
// test.
#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

class QuerierGroupSmRecordsTest : public GroupBench {
 protected:
  void watchAll() {
    watch(groupSm(group_), "sm");
    watch(groupStatus(group_), "status");
    for (const IpAddr addr : {s1_, s2_}) {
      if (sourceExists(addr)) watch(sourceSm(addr), addr.stringValue());
    }
  }
};

TEST_F(QuerierGroupSmRecordsTest, includeAllowsSourcesInTheirOrder) {
  for (const U8 type : {modeIsInclude, allowNewSources}) {
    include({{s1_, 200.0}, {s2_, 200.0}});
    watchAll();
    takeJournal();
    receiveRecord(type, group_, {s2_, s3_});
    EXPECT_THAT(takeJournal(),
                ElementsAre("status.lastReporter 10.0.0.77", "10.7.0.2.sourceTimerExpiry 1260",
                            "status.source 10.7.0.3", "sm.source 10.7.0.3"));
    querier_->groupSmDel(group_);
    querier_->pktSrcIs(IpAddr());
  }
}

TEST_F(QuerierGroupSmRecordsTest, includeIsExcludeSwitchesBeforeItDrops) {
  include({{s1_, 200.0}, {s2_, 200.0}});
  watchAll();
  receiveRecord(modeIsExclude, group_, {s2_, s3_});
  EXPECT_THAT(takeJournal(),
              ElementsAre("status.lastReporter 10.0.0.77", "status.filterMode filterModeExclude",
                          "status.source 10.7.0.3", "sm.source 10.7.0.3", "status.source 10.7.0.1",
                          "sm.source 10.7.0.1", "sm.membershipTimerExpiry 1260",
                          "sm.membershipTimerState timerRunning", "status.expiryTime 1260"));
}

TEST_F(QuerierGroupSmRecordsTest, includeToIncludeAsksBeforeItAllows) {
  include({{s1_, 200.0}, {s2_, 200.0}});
  watchAll();
  receiveRecord(changeToInclude, group_, {s2_, s3_});
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("status.lastReporter 10.0.0.77", "10.7.0.1.sourceTimerExpiry 1002",
                  "10.7.0.1.rexmits 2", "sm.rexmitSource 10.7.0.1",
                  "10.7.0.2.sourceTimerExpiry 1260", "status.source 10.7.0.3", "sm.source 10.7.0.3",
                  "sm.rexmitTimerExpiry 1000", "sm.rexmitTimerState timerRunning"));
}

TEST_F(QuerierGroupSmRecordsTest, includeToExcludeSwitchesAsksAndDrops) {
  include({{s1_, 200.0}, {s2_, 200.0}});
  watchAll();
  receiveRecord(changeToExclude, group_, {s2_, s3_});
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("status.lastReporter 10.0.0.77", "status.filterMode filterModeExclude",
                  "10.7.0.2.sourceTimerExpiry 1002", "10.7.0.2.rexmits 2",
                  "sm.rexmitSource 10.7.0.2", "status.source 10.7.0.3", "sm.source 10.7.0.3",
                  "status.source 10.7.0.1", "sm.source 10.7.0.1", "sm.membershipTimerExpiry 1260",
                  "sm.membershipTimerState timerRunning", "status.expiryTime 1260",
                  "sm.rexmitTimerExpiry 1000", "sm.rexmitTimerState timerRunning"));
  EXPECT_EQ(timerOf(s3_), never);
}

TEST_F(QuerierGroupSmRecordsTest, includeBlockAsksAboutKnownSources) {
  include({{s1_, 200.0}, {s2_, 200.0}});
  watchAll();
  receiveRecord(blockOldSources, group_, {s2_, s3_});
  EXPECT_THAT(takeJournal(),
              ElementsAre("status.lastReporter 10.0.0.77", "10.7.0.2.sourceTimerExpiry 1002",
                          "10.7.0.2.rexmits 2", "sm.rexmitSource 10.7.0.2",
                          "sm.rexmitTimerExpiry 1000", "sm.rexmitTimerState timerRunning"));
}

TEST_F(QuerierGroupSmRecordsTest, excludeIsExcludeDropsBeforeItAdds) {
  exclude({{s1_, 200.0}, {s2_, 200.0}});
  watchAll();
  receiveRecord(modeIsExclude, group_, {s2_, s3_});
  EXPECT_THAT(takeJournal(),
              ElementsAre("status.lastReporter 10.0.0.77", "status.source 10.7.0.1",
                          "sm.source 10.7.0.1", "status.source 10.7.0.3", "sm.source 10.7.0.3",
                          "sm.membershipTimerExpiry 1260", "status.expiryTime 1260"));
}

TEST_F(QuerierGroupSmRecordsTest, excludeToIncludeAllowsBeforeItAsks) {
  exclude({{s1_, 200.0}, {s2_, 200.0}});
  watchAll();
  receiveRecord(changeToInclude, group_, {s2_, s3_});
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("status.lastReporter 10.0.0.77", "10.7.0.2.sourceTimerExpiry 1260",
                  "status.source 10.7.0.3", "sm.source 10.7.0.3", "10.7.0.1.sourceTimerExpiry 1002",
                  "10.7.0.1.rexmits 2", "sm.rexmitSource 10.7.0.1", "sm.rexmitGroupQuery 2",
                  "sm.membershipTimerExpiry 1002", "status.expiryTime 1002",
                  "sm.rexmitTimerExpiry 1000", "sm.rexmitTimerState timerRunning"));
}

TEST_F(QuerierGroupSmRecordsTest, excludeToExcludeDropsBeforeItAsks) {
  exclude({{s1_, 200.0}, {s2_, 200.0}});
  watchAll();
  receiveRecord(changeToExclude, group_, {s2_, s3_});
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("status.lastReporter 10.0.0.77", "status.source 10.7.0.1", "sm.source 10.7.0.1",
                  "10.7.0.2.sourceTimerExpiry 1002", "10.7.0.2.rexmits 2",
                  "sm.rexmitSource 10.7.0.2", "status.source 10.7.0.3", "sm.source 10.7.0.3",
                  "sm.rexmitSource 10.7.0.3", "sm.membershipTimerExpiry 1260",
                  "status.expiryTime 1260", "sm.rexmitTimerExpiry 1000",
                  "sm.rexmitTimerState timerRunning"));
  EXPECT_EQ(timerOf(s3_), lmqt_) << "the group's time, lowered as it is asked about";
}

TEST_F(QuerierGroupSmRecordsTest, excludeBlockQueriesOldAndNewSources) {
  exclude({{s2_, 200.0}}, 1.5);
  watchAll();
  receiveRecord(blockOldSources, group_, {s2_, s3_});
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("status.lastReporter 10.0.0.77", "10.7.0.2.sourceTimerExpiry 1002",
                  "10.7.0.2.rexmits 2", "sm.rexmitSource 10.7.0.2", "status.source 10.7.0.3",
                  "sm.source 10.7.0.3", "sm.rexmitSource 10.7.0.3", "sm.rexmitTimerExpiry 1000",
                  "sm.rexmitTimerState timerRunning"));
  EXPECT_EQ(timerOf(s3_), 1.5) << "what the group timer has left";
  EXPECT_THAT(rexmitSources(), ElementsAre(s2_, s3_));
}

TEST_F(QuerierGroupSmRecordsTest, withOlderHostsChangeToExcludeSwitchesBeforeItDropsAll) {
  include({{s1_, 200.0}}, igmpVersion2);
  watchAll();
  receiveRecord(changeToExclude, group_, {s3_});
  EXPECT_THAT(
      takeJournal(),
      ElementsAre("status.lastReporter 10.0.0.77", "status.filterMode filterModeExclude",
                  "status.source 10.7.0.1", "sm.source 10.7.0.1", "sm.membershipTimerExpiry 1260",
                  "sm.membershipTimerState timerRunning", "status.expiryTime 1260"));
}

TEST_F(QuerierGroupSmRecordsTest, theRecordAndTheStateItMeetsAreTraced) {
  include({{s1_, 200.0}});
  receiveRecord(changeToExclude, group_, {s1_, s2_});
  receiveRecord(allowNewSources, group_, {});
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxV3Report( "
                   "Value('Gmp::Igmp::IgmpGroupRecord', ** {'version': 'igmpVersion3', "
                   "'rType': 4, 'multicastAddr': '239.1.1.1', "
                   "'source': {'10.7.0.1': True, '10.7.0.2': True}}) )"),
            1U);
  EXPECT_EQ(traced("Current state for 239.1.1.1 is filterModeInclude. Report is 4"), 1U);
  EXPECT_EQ(traced("Current state for 239.1.1.1 is filterModeExclude. Report is 5"), 1U);
}

TEST_F(QuerierGroupSmRecordsTest, anInvalidTypeIsTracedAndChangesNothing) {
  exclude({{s1_, 200.0}});
  receiveRecord(1, group_);  // the reporter is known now
  watchAll();
  for (const U8 type : {U8{0}, U8{7}, U8{255}}) receiveRecord(type, group_, {s2_});
  EXPECT_TRUE(takeJournal().empty());
  EXPECT_EQ(traced("Received invalid group record type 0"), 1U);
  EXPECT_EQ(traced("Received invalid group record type 7"), 1U);
  EXPECT_EQ(traced("Received invalid group record type 255"), 1U);
}

TEST_F(QuerierGroupSmRecordsTest, aKnownTypeIsNotCalledInvalid) {
  exclude({{s1_, 200.0}}, 100.0, igmpVersion1);
  for (U8 type = 1; type <= 6; ++type) receiveRecord(type, group_, {s1_});
  EXPECT_EQ(tracedBegin("Received invalid"), 0U);
}

TEST_F(QuerierGroupSmRecordsTest, anEmptyIncludeGroupEndsInItsOwnHandler) {
  for (const U8 type : {modeIsInclude, changeToInclude, allowNewSources, blockOldSources, U8{7}}) {
    for (const std::vector<IpAddr>& list : {std::vector<IpAddr>{}, {IpAddr()}}) {
      SCOPED_TRACE(int{type});
      const Ptr<Sm> sm = include({});
      receiveRecord(type, group_, list);
      EXPECT_FALSE(groupExists());
      EXPECT_EQ(groupStatus(group_), nullptr);
      EXPECT_TRUE(sm->ended());
      EXPECT_EQ(wheel_->armed(), 0U);
      EXPECT_EQ(traced("Deleting groupSm for group 239.1.1.1"), 1U);
    }
  }
}

TEST_F(QuerierGroupSmRecordsTest, aRecordForAnUnknownGroupThatSaysNothingLeavesNothing) {
  receiveRecord(modeIsInclude, group_);
  EXPECT_FALSE(groupExists());
  EXPECT_EQ(groupStatus(group_), nullptr);
  EXPECT_EQ(status_->joins(), 1U);
  EXPECT_EQ(status_->v3ReportReceived(), 1U);
}

TEST_F(QuerierGroupSmRecordsTest, aGroupThatEndedBeginsAnewWithTheNextRecordOfTheReport) {
  include({});
  receiveV3Report(
      {{.type = modeIsInclude, .group = group_}, {.type = changeToExclude, .group = group_}});
  ASSERT_TRUE(groupExists());
  EXPECT_EQ(filterMode(), filterModeExclude);
  EXPECT_EQ(groupTimer(), gmi_);
  EXPECT_EQ(status_->joins(), 2U);
}

TEST_F(QuerierGroupSmRecordsTest, theCloseStartsAStoppedTimerForPendingQueries) {
  const Ptr<Sm> sm = exclude({});
  sm->rexmitGroupQueryIs(1);
  receiveRecord(allowNewSources, group_, {s1_});
  EXPECT_EQ(rexmitTimer(), lmqi_);
  runFor(0.25);
  receiveRecord(allowNewSources, group_, {s1_});
  EXPECT_EQ(rexmitTimer(), 0.75) << "a running timer is left alone";
}

TEST_F(QuerierGroupSmRecordsTest, theCloseStopsATimerWithNothingToAsk) {
  include({{s1_, 200.0}});
  receiveRecord(blockOldSources, group_, {s2_});
  EXPECT_EQ(rexmitTimer(), never);
  EXPECT_EQ(traced("Setting rexmitTimerId for vlan10:239.1.1.1 to expire in 0 @ 1000"), 1U);
  EXPECT_EQ(traced("Setting rexmitTimerId for vlan10:239.1.1.1 to expire in inf @ inf"), 1U);
}

TEST_F(QuerierGroupSmRecordsTest, withACountOfZeroDroppedSourcesGoAtTheNextTurn) {
  config_->lastMemberQueryCountIs(0);
  include({{s1_, 200.0}, {s2_, 200.0}});
  receiveRecord(changeToInclude, group_, {s2_});
  EXPECT_EQ(timerOf(s1_), 0.0);
  EXPECT_EQ(rexmitTimer(), never);
  runFor(0.0);
  EXPECT_FALSE(sourceExists(s1_));
  EXPECT_TRUE(takeSent().empty());
}

TEST_F(QuerierGroupSmRecordsTest, aRecordOfAGroupWithoutTimerLeftExcludesNewSources) {
  exclude({}, never);
  receiveRecord(blockOldSources, group_, {s1_});
  EXPECT_EQ(timerOf(s1_), never);
  EXPECT_TRUE(rexmitSources().empty());
  EXPECT_EQ(rexmitTimer(), never);
}

TEST_F(QuerierGroupSmRecordsTest, theSourcesOfALargeRecordAllCount) {
  std::vector<IpAddr> many;
  for (U32 i = 0; i < 300; ++i) many.emplace_back(0x0a080000 + i);
  receiveRecord(changeToInclude, group_, many);
  EXPECT_EQ(groupSm(group_)->source().size(), 300U);
  receiveRecord(changeToExclude, group_, {many[7]});
  EXPECT_EQ(groupSm(group_)->source().size(), 1U);
  EXPECT_EQ(groupStatus(group_)->source().size(), 1U);
}

TEST_F(QuerierGroupSmRecordsTest, anUnknownFilterModeIsAFatalAssertion) {
  include({{s1_, 200.0}})->groupStatus()->filterModeIs(static_cast<IgmpFilterMode>(2));
  EXPECT_DEATH(receiveRecord(allowNewSources, group_, {s1_}), "GmpIgmpQuerierSm.tin.*filterMode");
}

TEST_F(QuerierGroupSmRecordsTest, theQuerierMayBeReleasedWhileARecordIsApplied) {
  const Ptr<Sm> sm = include({{s1_, 200.0}});
  Once<QuerierGroupStatus> once(sm->groupStatus(), "filterMode", [this] { release(); });
  receiveRecord(changeToExclude, group_, {s2_});
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(wheel_->armed(), 0U);
  EXPECT_EQ(status_->v3ReportReceived(), 1U);
}

TEST_F(QuerierGroupSmRecordsTest, theQuerierMayBeReleasedWhileTheGroupEnds) {
  const Ptr<Sm> sm = include({});
  Once<QuerierStatus> once(status_, "group", [this] { release(); });
  receiveRecord(modeIsInclude, group_);
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(status_->group(group_), nullptr);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
