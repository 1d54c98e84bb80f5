// Life of a group machine: its creation, its timers, compatibility mode, the end of the group.
#include <limits>

#include <Mox/Errors.h>
#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

class QuerierGroupSmTest : public GroupBench {
 protected:
  Ptr<Sm> fresh() { return getOrCreateGroupSm(querier_, group_); }
};

TEST_F(QuerierGroupSmTest, aNewGroupHasItsTimersDisabledAndPublishesInfinity) {
  const Ptr<Sm> sm = fresh();
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->group(), group_);
  for (const TimerState state : {sm->membershipTimerState(), sm->v1MembershipTimerState(),
                                 sm->v2MembershipTimerState(), sm->rexmitTimerState()}) {
    EXPECT_EQ(state, timerDisabled);
  }
  EXPECT_EQ(sm->membershipTimerExpiry(), never);
  EXPECT_EQ(sm->rexmitTimerExpiry(), never);
  EXPECT_EQ(sm->membershipTimerRemaining(), never);
  EXPECT_EQ(sm->rexmitTimerRemaining(), never);
  EXPECT_EQ(sm->groupStatus()->expiryTime(), never);
  EXPECT_TRUE(sm->source().empty());
  EXPECT_TRUE(sm->rexmitSource().empty());
  EXPECT_EQ(sm->rexmitGroupQuery(), 0U);
}

TEST_F(QuerierGroupSmTest, aNewGroupIsPublishedAndCountsAJoin) {
  runFor(7.0);
  querier_->pktSrcIs(host_);
  status_->querierVersionIs(igmpVersion2);
  const Ptr<Sm> sm = fresh();
  const Ptr<QuerierGroupStatus> status = groupStatus(group_);
  EXPECT_EQ(sm->groupStatus(), status);
  EXPECT_EQ(status->creationTime(), begin_ + 7.0);
  EXPECT_EQ(status->lastReporter(), host_);
  EXPECT_EQ(status->compatibilityMode(), igmpVersion2);
  EXPECT_EQ(status->filterMode(), filterModeInclude);
  EXPECT_EQ(status_->joins(), 1U);
}

TEST_F(QuerierGroupSmTest, creationTracesEachStepAndSetsTheTimersInOrder) {
  fresh();
  const std::vector<std::string> all = traceTexts("GmpIgmpQuerierSm");
  const auto begin =
      std::find(all.begin(), all.end(), "QuerierGroupSm( 239.1.1.1 )::handleInitialized()");
  ASSERT_NE(begin, all.end());
  EXPECT_THAT(
      std::vector<std::string>(begin, all.end()),
      ElementsAre("QuerierGroupSm( 239.1.1.1 )::handleInitialized()",
                  "QuerierGroupSm( 239.1.1.1 )::handleInitialized(): add group 239.1.1.1 to status",
                  "joins : 1", "QuerierGroupSm( 239.1.1.1 )::doSetTimer( membershipTimerId, inf )",
                  "Setting membershipTimerId for vlan10:239.1.1.1 to expire in inf @ inf",
                  "QuerierGroupSm( 239.1.1.1 )::doSetTimer( v1MembershipTimerId, inf )",
                  "Setting v1MembershipTimerId for vlan10:239.1.1.1 to expire in inf @ inf",
                  "QuerierGroupSm( 239.1.1.1 )::doSetTimer( v2MembershipTimerId, inf )",
                  "Setting v2MembershipTimerId for vlan10:239.1.1.1 to expire in inf @ inf",
                  "QuerierGroupSm( 239.1.1.1 )::doSetTimer( rexmitTimerId, inf )",
                  "Setting rexmitTimerId for vlan10:239.1.1.1 to expire in inf @ inf",
                  "QuerierSm( vlan10 )::handleGroupSm()"));
}

TEST_F(QuerierGroupSmTest, anEntryThatExistsKeepsItsCreationTimeButCountsAJoin) {
  status_->groupIs(group_)->creationTimeIs(3.0);
  querier_->pktSrcIs(host_);
  querier_->groupSmIs(group_, wheel_, wheel_, wheel_, wheel_);
  EXPECT_EQ(groupStatus(group_)->creationTime(), 3.0);
  EXPECT_EQ(groupStatus(group_)->lastReporter(), host_);
  EXPECT_EQ(groupStatus(group_)->compatibilityMode(), igmpVersion3);
  EXPECT_EQ(status_->joins(), 1U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleInitialized(): a group status for 239.1.1.1 "
                   "already exists"),
            1U);
}

TEST_F(QuerierGroupSmTest, anUninitializedMachineIgnoresItsTimers) {
  const Ptr<Sm> sm = exclude({{s1_, never}}, 50.0);
  sm->rexmitGroupQueryIs(2);
  sm->doSetTimer(Sm::v1MembershipTimerId, 50.0);
  sm->doSetTimer(Sm::v2MembershipTimerId, 50.0);
  sm->initializedIs(false);
  traces_.clear();
  sm->handleMembershipTimer();
  sm->handleV1MembershipTimer();
  sm->handleV2MembershipTimer();
  sm->handleRexmitTimer();
  EXPECT_TRUE(traces_.empty());
  EXPECT_EQ(groupTimer(), 50.0);
  EXPECT_EQ(sm->v1MembershipTimerState(), timerRunning);
  EXPECT_EQ(sm->v2MembershipTimerState(), timerRunning);
  EXPECT_EQ(sm->rexmitGroupQuery(), 2U);
  EXPECT_TRUE(takeSent().empty());
}

TEST_F(QuerierGroupSmTest, theTimerIdentifiersHaveTheirNumbersAndNames) {
  EXPECT_EQ(Sm::membershipTimerId, 0U);
  EXPECT_EQ(Sm::v1MembershipTimerId, 1U);
  EXPECT_EQ(Sm::v2MembershipTimerId, 2U);
  EXPECT_EQ(Sm::rexmitTimerId, 3U);
  EXPECT_EQ(stringValue(Sm::membershipTimerId), "membershipTimerId");
  EXPECT_EQ(stringValue(Sm::v1MembershipTimerId), "v1MembershipTimerId");
  EXPECT_EQ(stringValue(Sm::v2MembershipTimerId), "v2MembershipTimerId");
  EXPECT_EQ(stringValue(Sm::rexmitTimerId), "rexmitTimerId");
}

TEST_F(QuerierGroupSmTest, settingTheGroupTimerArmsItThenPublishesIt) {
  const Ptr<Sm> sm = fresh();
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  traces_.clear();
  sm->doSetTimer(Sm::membershipTimerId, 30.5);
  EXPECT_THAT(takeJournal(),
              ElementsAre("sm.membershipTimerExpiry 1030.5", "sm.membershipTimerState timerRunning",
                          "status.expiryTime 1030.5"));
  EXPECT_EQ(sm->membershipTimerRemaining(), 30.5);
  EXPECT_THAT(
      traceTexts(),
      ElementsAre("QuerierGroupSm( 239.1.1.1 )::doSetTimer( membershipTimerId, 30.5 )",
                  "Setting membershipTimerId for vlan10:239.1.1.1 to expire in 30.5 @ 1030.5"));
  sm->doSetTimer(Sm::membershipTimerId, never);
  EXPECT_THAT(takeJournal(),
              ElementsAre("sm.membershipTimerExpiry inf", "sm.membershipTimerState timerDisabled",
                          "status.expiryTime inf"));
  EXPECT_EQ(sm->membershipTimerRemaining(), never);
}

TEST_F(QuerierGroupSmTest, theOlderHostTimersPublishNothing) {
  const Ptr<Sm> sm = fresh();
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  sm->doSetTimer(Sm::v1MembershipTimerId, 5.0);
  sm->doSetTimer(Sm::v2MembershipTimerId, 6.0);
  EXPECT_THAT(takeJournal(), ElementsAre("sm.v1MembershipTimerState timerRunning",
                                         "sm.v2MembershipTimerState timerRunning"));
  sm->doSetTimer(Sm::v1MembershipTimerId, never);
  sm->doSetTimer(Sm::v2MembershipTimerId, never);
  EXPECT_THAT(takeJournal(), ElementsAre("sm.v1MembershipTimerState timerDisabled",
                                         "sm.v2MembershipTimerState timerDisabled"));
}

TEST_F(QuerierGroupSmTest, theRetransmissionTimerShowsItsExpiryInTheMachineOnly) {
  const Ptr<Sm> sm = fresh();
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  sm->doSetTimer(Sm::rexmitTimerId, 4.0);
  EXPECT_THAT(takeJournal(),
              ElementsAre("sm.rexmitTimerExpiry 1004", "sm.rexmitTimerState timerRunning"));
  EXPECT_EQ(sm->rexmitTimerRemaining(), 4.0);
}

TEST_F(QuerierGroupSmTest, theLargestFiniteDelayStillRunsTheTimer) {
  const Ptr<Sm> sm = fresh();
  sm->doSetTimer(Sm::membershipTimerId, std::numeric_limits<Seconds>::max());
  EXPECT_EQ(sm->membershipTimerState(), timerRunning);
}

TEST_F(QuerierGroupSmTest, aZeroDelayFiresAtTheNextTurn) {
  const Ptr<Sm> sm = exclude({});
  sm->doSetTimer(Sm::membershipTimerId, 0.0);
  EXPECT_EQ(sm->membershipTimerState(), timerRunning);
  EXPECT_TRUE(groupExists());
  runFor(0.0);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmTest, anUnknownTimerIsAFatalAssertion) {
  const Ptr<Sm> sm = fresh();
  EXPECT_DEATH(sm->doSetTimer(static_cast<Sm::TimerId>(4), 1.0), "GmpIgmpQuerierSm.tin.*timer id");
}

TEST_F(QuerierGroupSmTest, aTimerMovedToAnotherWheelKeepsItsTime) {
  const Ptr<Sm> sm = exclude({}, 3.0);
  sm->doSetTimer(Sm::v1MembershipTimerId, 4.0);
  sm->doSetTimer(Sm::v2MembershipTimerId, 5.0);
  sm->rexmitGroupQueryIs(1);
  sm->doSetTimer(Sm::rexmitTimerId, 1.0);
  const auto other = makePtr<Obel::TimerWheel>(begin_);
  watch(sm, "sm");
  sm->membershipTimerIs(other);
  sm->v1MembershipTimerIs(other);
  sm->v2MembershipTimerIs(other);
  sm->rexmitTimerIs(other);
  EXPECT_THAT(takeJournal(), ElementsAre("sm.membershipTimer", "sm.v1MembershipTimer",
                                         "sm.v2MembershipTimer", "sm.rexmitTimer"));
  EXPECT_EQ(sm->membershipTimer(), other);
  EXPECT_EQ(sm->v1MembershipTimer(), other);
  EXPECT_EQ(sm->v2MembershipTimer(), other);
  EXPECT_EQ(sm->rexmitTimer(), other);
  EXPECT_EQ(other->armed(), 4U);
  runFor(1.0);
  EXPECT_TRUE(takeSent().empty());
  other->turn(now());
  EXPECT_EQ(takeSent().size(), 1U);
  runFor(2.0);
  EXPECT_TRUE(groupExists());
  other->turn(now());
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmTest, theDeclaredSourceSetsAreForAccessByNameOnly) {
  const Ptr<Sm> sm = fresh();
  sm->rexmitClrSourceIs(s1_, true);
  sm->rexmitSetSourceIs(s2_, true);
  EXPECT_TRUE(sm->rexmitClrSource().contains(s1_));
  EXPECT_TRUE(sm->rexmitSetSource().contains(s2_));
  sm->rexmitClrSourceDel(s1_);
  sm->rexmitSetSourceDelAll();
  EXPECT_TRUE(sm->rexmitClrSource().empty());
  EXPECT_TRUE(sm->rexmitSetSource().empty());
}

// The last group to finish completes the hand-over to the elected querier.
TEST_F(QuerierGroupSmTest, duringAHandOverARunningRetransmissionTimerIsPending) {
  const Ptr<Sm> sm = fresh();
  sm->doSetTimer(Sm::rexmitTimerId, 1.0);
  EXPECT_TRUE(querier_->pendingRexmit().empty());
  querier_->transitionToNonQuerierIs(true);
  sm->doSetTimer(Sm::rexmitTimerId, 1.0);
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(group_));
  EXPECT_TRUE(querier_->transitionToNonQuerier());
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateQuerier);
}

TEST_F(QuerierGroupSmTest, theLastPendingGroupToFinishCompletesTheHandOver) {
  const IpAddr otherGroup(239, 1, 1, 2);
  const Ptr<Sm> sm = fresh();
  querier_->transitionToNonQuerierIs(true);
  sm->doSetTimer(Sm::rexmitTimerId, 1.0);
  querier_->pendingRexmitIs(otherGroup, true);
  sm->doSetTimer(Sm::rexmitTimerId, never);
  EXPECT_TRUE(querier_->transitionToNonQuerier());
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateQuerier);
  querier_->pendingRexmitDel(otherGroup);
  sm->doSetTimer(Sm::rexmitTimerId, never);
  EXPECT_FALSE(querier_->transitionToNonQuerier());
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateNonQuerier);
}

TEST_F(QuerierGroupSmTest, otherTimersDoNotTouchAHandOver) {
  const Ptr<Sm> sm = fresh();
  querier_->transitionToNonQuerierIs(true);
  sm->doSetTimer(Sm::membershipTimerId, 5.0);
  sm->doSetTimer(Sm::v1MembershipTimerId, 5.0);
  sm->doSetTimer(Sm::v2MembershipTimerId, never);
  EXPECT_TRUE(querier_->pendingRexmit().empty());
  EXPECT_TRUE(querier_->transitionToNonQuerier());
}

TEST_F(QuerierGroupSmTest, sourcesAreNotifiedAfterTheirEntries) {
  const Ptr<Sm> sm = exclude({{s2_, 5.0}});
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  getOrCreateSourceSm(sm, s1_);
  getOrCreateSourceSm(sm, s1_);
  EXPECT_THAT(takeJournal(), ElementsAre("status.source 10.7.0.1", "sm.source 10.7.0.1"));
  sm->sourceDel(s1_);
  sm->sourceDel(s1_);
  EXPECT_THAT(takeJournal(), ElementsAre("status.source 10.7.0.1", "sm.source 10.7.0.1"));
  sm->sourceNotify(s2_);
  EXPECT_THAT(takeJournal(), ElementsAre("sm.source 10.7.0.2"));
}

TEST_F(QuerierGroupSmTest, setsOfSourcesNotifyOfEachChangeOnce) {
  struct SetCase {
    const char* name;
    void (Sm::*is)(IpAddr, bool);
    void (Sm::*del)(IpAddr);
    void (Sm::*delAll)();
    void (Sm::*notify)(IpAddr);
  };
  const Ptr<Sm> sm = fresh();
  watch(sm, "sm");
  for (const SetCase& set :
       {SetCase{"rexmitSource", &Sm::rexmitSourceIs, &Sm::rexmitSourceDel, &Sm::rexmitSourceDelAll,
                &Sm::rexmitSourceNotify},
        SetCase{"rexmitClrSource", &Sm::rexmitClrSourceIs, &Sm::rexmitClrSourceDel,
                &Sm::rexmitClrSourceDelAll, &Sm::rexmitClrSourceNotify},
        SetCase{"rexmitSetSource", &Sm::rexmitSetSourceIs, &Sm::rexmitSetSourceDel,
                &Sm::rexmitSetSourceDelAll, &Sm::rexmitSetSourceNotify}}) {
    SCOPED_TRACE(set.name);
    const std::string of = std::string("sm.") + set.name;
    (sm.get()->*set.is)(s1_, true);
    (sm.get()->*set.is)(s1_, true);
    (sm.get()->*set.is)(s2_, true);
    (sm.get()->*set.del)(s1_);
    (sm.get()->*set.del)(s1_);
    EXPECT_THAT(takeJournal(), ElementsAre(of + " 10.7.0.1", of + " 10.7.0.2", of + " 10.7.0.1"));
    (sm.get()->*set.delAll)();
    (sm.get()->*set.delAll)();
    (sm.get()->*set.notify)(s3_);
    EXPECT_THAT(takeJournal(), ElementsAre(of + " 10.7.0.2", of + " 10.7.0.3"));
  }
}

TEST_F(QuerierGroupSmTest, anEndedMachineArmsAndWritesNothing) {
  const Ptr<Sm> sm = exclude({{s1_, 5.0}});
  const Ptr<QuerierGroupSourceSm> source = sourceSm(s1_);
  const Ptr<QuerierGroupStatus> status = sm->groupStatus();
  querier_->groupSmDel(group_);
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(source->groupSm(), nullptr);
  watch(status, "status");
  sm->doSetTimer(Sm::membershipTimerId, 1.0);
  source->doSetTimer(1.0);
  sm->handleMembershipTimer();
  EXPECT_TRUE(takeJournal().empty());
  EXPECT_EQ(wheel_->armed(), 0U);
  EXPECT_DEATH(sm->querierSm(), "GmpIgmpQuerierSm.tin");
}

}  // namespace

}  // namespace Gmp::Igmp::testing
