// What a rebuilt group looks like, and the restart of a querier on the status of the one before it.
#include "Once.h"
#include "TestBench.h"

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Status = QuerierStatus;

namespace {

class QuerierSmRebuild : public TestBench {
 protected:
  static constexpr IpAddr source2_{192, 0, 2, 2};
  static constexpr Seconds membershipInterval_ = 260.0;  // 2 * 125 + 10

  void preload(IgmpFilterMode mode, IgmpVersion compatibility = igmpVersion3) {
    const Ptr<QuerierGroupStatus> status = status_->groupIs(group_);
    status->filterModeIs(mode);
    status->compatibilityModeIs(compatibility);
    status->creationTimeIs(500.0);
    status->lastReporterIs(host_);
  }
  void preloadSource(IpAddr source, bool expired) {
    status_->group(group_)->sourceIs(source)->expiredIs(expired);
  }
  const QuerierGroupSm& rebuild() {
    config_->sendQueryIs(false);
    start();
    return *groupSm(group_);
  }
};

TEST_F(QuerierSmRebuild, AnExcludeGroupGetsAFullInterval) {
  preload(filterModeExclude);
  status_->group(group_)->expiryTimeIs(1001.0);  // nearly over
  const QuerierGroupSm& sm = rebuild();
  EXPECT_EQ(sm.membershipTimerExpiry(), now() + membershipInterval_);
  EXPECT_EQ(sm.membershipTimerState(), timerRunning);
  EXPECT_EQ(groupStatus(group_)->expiryTime(), now() + membershipInterval_);
  EXPECT_EQ(groupStatus(group_)->filterMode(), filterModeExclude);
}

TEST_F(QuerierSmRebuild, TheIntervalFollowsTheEffectiveValues) {
  config_->robustnessIs(3);
  config_->queryIntervalIs(60.0);
  config_->queryResponseIntervalIs(5.0);
  preload(filterModeExclude);
  EXPECT_EQ(rebuild().membershipTimerExpiry(), now() + 185.0);
}

TEST_F(QuerierSmRebuild, AnIncludeGroupHasNoGroupTimer) {
  preload(filterModeInclude);
  preloadSource(source_, false);
  const QuerierGroupSm& sm = rebuild();
  EXPECT_EQ(sm.membershipTimerState(), timerDisabled);
  EXPECT_EQ(groupStatus(group_)->expiryTime(), never);
  EXPECT_EQ(groupStatus(group_)->filterMode(), filterModeInclude);
}

TEST_F(QuerierSmRebuild, SourcesThatWereWantedGetAFullInterval) {
  preload(filterModeInclude);
  preloadSource(source_, false);
  const QuerierGroupSm& sm = rebuild();
  EXPECT_EQ(sm.source(source_)->sourceTimerExpiry(), now() + membershipInterval_);
  EXPECT_FALSE(groupStatus(group_)->source(source_)->expired());
}

TEST_F(QuerierSmRebuild, ExpiredSourcesOfAnExcludeGroupStayWithTheirTimerDisabled) {
  preload(filterModeExclude);
  preloadSource(source_, true);
  preloadSource(source2_, false);
  const QuerierGroupSm& sm = rebuild();
  EXPECT_EQ(sm.source(source_)->sourceTimerState(), timerDisabled);
  EXPECT_TRUE(groupStatus(group_)->source(source_)->expired());
  EXPECT_EQ(sm.source(source2_)->sourceTimerState(), timerRunning);
  EXPECT_EQ(tracedBegin("Delete"), 0u);
}

TEST_F(QuerierSmRebuild, ExpiredSourcesOfAnIncludeGroupAreDeleted) {
  preload(filterModeInclude);
  preloadSource(source_, true);
  preloadSource(source2_, false);
  const QuerierGroupSm& sm = rebuild();
  EXPECT_THAT(sm.source().keys(), ElementsAre(source2_));
  EXPECT_THAT(groupStatus(group_)->source().keys(), ElementsAre(source2_));
  EXPECT_EQ(traced("Delete source 192.0.2.1 from status"), 1u);
}

TEST_F(QuerierSmRebuild, AnIncludeGroupThatLosesItsLastSourceGoesWithoutAMachine) {
  preload(filterModeInclude);
  preloadSource(source_, true);
  preloadSource(source2_, true);
  watch(status_, "status");
  config_->sendQueryIs(false);
  start();
  EXPECT_TRUE(querier_->groupSm().empty());
  EXPECT_EQ(status_->group(group_), nullptr);
  EXPECT_EQ(traced("Delete group 239.1.1.1 from status"), 1u);
  EXPECT_EQ(status_->joins(), 0u);
  EXPECT_THAT(journal_,
              ElementsAre("status.querierVersion igmpVersion3", "status.group 239.1.1.1"));
}

TEST_F(QuerierSmRebuild, ANotifieeOfAStaleSourceMayRemoveTheOthers) {
  preload(filterModeInclude);
  preloadSource(source_, true);
  preloadSource(source2_, true);
  const Ptr<QuerierGroupStatus> entry = status_->group(group_);
  Once<QuerierGroupStatus> once(entry, "source", [&] { entry->sourceDelAll(); });
  config_->sendQueryIs(false);
  start();
  EXPECT_TRUE(once.acted());
  EXPECT_EQ(status_->group(group_), nullptr);
  EXPECT_TRUE(querier_->groupSm().empty());
}

TEST_F(QuerierSmRebuild, ANotifieeOfAStaleSourceMayRemoveTheGroup) {
  preload(filterModeInclude);
  preloadSource(source_, true);
  preloadSource(source2_, false);
  Once<QuerierGroupStatus> once(status_->group(group_), "source",
                                [&] { status_->groupDel(group_); });
  config_->sendQueryIs(false);
  start();
  EXPECT_TRUE(once.acted());
  EXPECT_EQ(status_->group(group_), nullptr);
  EXPECT_TRUE(querier_->groupSm().empty());
}

TEST_F(QuerierSmRebuild, ANotifieeOfARebuiltSourceMayRemoveTheOthers) {
  preload(filterModeExclude);
  preloadSource(source_, false);
  preloadSource(source2_, false);
  const Ptr<QuerierGroupStatus> entry = status_->group(group_);
  const auto removeOther = [&](IpAddr other) { return [&, other] { entry->sourceDel(other); }; };
  Once<QuerierSourceStatus> first(entry->source(source_), "expired", removeOther(source2_));
  Once<QuerierSourceStatus> second(entry->source(source2_), "expired", removeOther(source_));
  const QuerierGroupSm& sm = rebuild();
  EXPECT_NE(first.acted(), second.acted());
  EXPECT_EQ(sm.source().size(), 1u);
  EXPECT_EQ(sm.source().keys(), entry->source().keys());
}

TEST_F(QuerierSmRebuild, ANotifieeOfARebuiltSourceMayEndTheGroup) {
  preload(filterModeExclude);
  preloadSource(source_, false);
  preloadSource(source2_, false);
  config_->sendQueryIs(false);
  setup_.debugYieldAfterOne = true;
  status_->groupIs(IpAddr(239, 0, 0, 1))->filterModeIs(filterModeExclude);
  start();  // rebuilds the one before it
  const auto endIt = [&] { querier_->groupSmDel(group_); };
  const Ptr<QuerierGroupStatus> entry = status_->group(group_);
  Once<QuerierSourceStatus> first(entry->source(source_), "expired", endIt);
  Once<QuerierSourceStatus> second(entry->source(source2_), "expired", endIt);
  runFor(0.0);
  EXPECT_NE(first.acted(), second.acted());
  EXPECT_EQ(groupSm(group_), nullptr);
  EXPECT_EQ(status_->group(group_), nullptr);
}

TEST_F(QuerierSmRebuild, AnExcludeGroupWithoutSourcesStays) {
  preload(filterModeExclude);
  EXPECT_TRUE(rebuild().source().empty());
}

TEST_F(QuerierSmRebuild, WalkGoesOnBehindAStaleGroup) {
  preload(filterModeInclude);
  status_->groupIs(group2_)->filterModeIs(filterModeExclude);
  config_->sendQueryIs(false);
  start();
  EXPECT_THAT(querier_->groupSm().keys(), ElementsAre(group2_));
}

TEST_F(QuerierSmRebuild, CompatibilityIsThatOfTheQuerierWhenTheMachineIsMade) {
  struct Case {
    IgmpVersion configured;
    TimerState v1;
    TimerState v2;
  };
  for (const Case& c : {Case{igmpVersion1, timerRunning, timerDisabled},
                        Case{igmpVersion2, timerDisabled, timerRunning},
                        Case{igmpVersion3, timerDisabled, timerDisabled}}) {
    SCOPED_TRACE(stringValue(c.configured));
    release();
    status_ = querierStatusFactory();
    config_->querierVersionIs(c.configured);
    preload(filterModeExclude, igmpVersion1);
    const QuerierGroupSm& sm = rebuild();
    EXPECT_EQ(groupStatus(group_)->compatibilityMode(), c.configured);
    EXPECT_EQ(sm.v1MembershipTimerState(), c.v1);
    EXPECT_EQ(sm.v2MembershipTimerState(), c.v2);
  }
}

TEST_F(QuerierSmRebuild, OlderHostTimersGetAFullInterval) {
  config_->querierVersionIs(igmpVersion2);
  preload(filterModeExclude);
  rebuild();
  groupSm(group_)->doSetTimer(QuerierGroupSm::membershipTimerId, never);  // it would be first
  runFor(membershipInterval_ - 0.001);
  EXPECT_EQ(traced("V2 Membership for 239.1.1.1 on vlan10 expired"), 0u);
  runFor(0.002);
  EXPECT_EQ(traced("V2 Membership for 239.1.1.1 on vlan10 expired"), 1u);
}

TEST_F(QuerierSmRebuild, TheEntryKeepsItsBirthCountsAJoinAndForgetsTheReporter) {
  preload(filterModeExclude);
  const Ptr<QuerierGroupStatus> before = groupStatus(group_);
  rebuild();
  EXPECT_EQ(groupStatus(group_), before);
  EXPECT_EQ(before->creationTime(), 500.0);
  EXPECT_EQ(before->lastReporter(), IpAddr());
  EXPECT_EQ(status_->joins(), 1u);
}

TEST_F(QuerierSmRebuild, ARebuiltGroupEndsWithoutAReport) {
  preload(filterModeInclude);
  preloadSource(source_, false);
  rebuild();
  runFor(membershipInterval_);
  EXPECT_EQ(status_->group(group_), nullptr);
  EXPECT_TRUE(querier_->groupSm().empty());
}

TEST_F(QuerierSmRebuild, ARestartTakesTheGroupsOver) {
  start();
  receiveRecord(2, group_, {source_, source2_});
  receiveRecord(1, group2_, {source_});
  runFor(100.0);
  restart();
  EXPECT_THAT(querier_->groupSm().keys(), UnorderedElementsAre(group_, group2_));
  EXPECT_EQ(groupSm(group_)->membershipTimerExpiry(), now() + membershipInterval_);
  EXPECT_THAT(groupSm(group_)->source().keys(), UnorderedElementsAre(source_, source2_));
  EXPECT_EQ(groupSm(group2_)->source(source_)->sourceTimerExpiry(), now() + membershipInterval_);
}

TEST_F(QuerierSmRebuild, ARestartOnAQuerierStatusSendsAtOnceAndAgainWithinTenSeconds) {
  start();
  runFor(200.0);
  takeSent();
  restart();
  ASSERT_EQ(sent_.size(), 1u);  // published inside the constructor
  EXPECT_EQ(sent_[0].at, now());
  EXPECT_EQ(querier_->writableCount(), 1u);
  EXPECT_LT(status_->generalQueryExpiryTime(), now() + 10.0);
  runFor(10.0);
  EXPECT_EQ(sent_.size(), 2u);
}

TEST_F(QuerierSmRebuild, ARestartOnANonQuerierStatusKeepsTheAdoptedValuesAndTakesTheRole) {
  start();
  receiveV3Query(lower_, {.code = 50, .qrv = 3, .qqic = 60});
  takeSent();
  restart();
  EXPECT_THAT(sent_, IsEmpty());
  EXPECT_EQ(status_->state(), Status::querierStateQuerier);
  EXPECT_EQ(status_->electedQuerierAddr(), own_);
  EXPECT_EQ(status_->robustness(), 3u);
  EXPECT_EQ(status_->queryInterval(), 60.0);
  EXPECT_EQ(status_->otherQuerierExpiryTime(), never);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
