// What the expiry of the group timer and of the older host present timers does to a group.
#include <tuple>

#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

using QuerierGroupSmExpiryTest = GroupBench;

TEST_F(QuerierGroupSmExpiryTest, aGroupWithoutSourcesEndsWithItsTimer) {
  const Ptr<Sm> sm = exclude({}, 10.0);
  runUntil(begin_ + 9.99);
  EXPECT_TRUE(groupExists());
  runUntil(begin_ + 10.0);
  EXPECT_FALSE(groupExists());
  EXPECT_EQ(groupStatus(group_), nullptr);
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(wheel_->armed(), 0U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleMembershipTimer()"), 1U);
  EXPECT_EQ(traced("Membership for 239.1.1.1 on vlan10 expired"), 1U);
  EXPECT_EQ(traced("Deleting groupSm for group 239.1.1.1"), 1U);
}

TEST_F(QuerierGroupSmExpiryTest, excludedSourcesGoAndWantedOnesKeepTheGroupInInclude) {
  const Ptr<Sm> sm = exclude({{s1_, 100.0}, {s2_, never}}, 10.0);
  runFor(10.0);
  ASSERT_TRUE(groupExists());
  EXPECT_TRUE(sourceExists(s1_));
  EXPECT_FALSE(sourceExists(s2_));
  EXPECT_EQ(sourceStatus(s2_), nullptr);
  EXPECT_EQ(filterMode(), filterModeInclude);
  EXPECT_EQ(groupStatus(group_)->expiryTime(), never);
  EXPECT_EQ(sm->membershipTimerState(), timerDisabled);
  EXPECT_EQ(timerOf(s1_), 90.0);
  EXPECT_GE(traced("Removing source 10.7.0.2 for 239.1.1.1 on vlan10"), 1U);
  EXPECT_EQ(traced("Deleting groupSm for group 239.1.1.1"), 0U);
}

TEST_F(QuerierGroupSmExpiryTest, theKeptSourcesEndTheGroupInTheirTurn) {
  exclude({{s1_, 30.0}, {s2_, 20.0}}, 10.0);
  runFor(20.0);
  EXPECT_FALSE(sourceExists(s2_));
  EXPECT_TRUE(sourceExists(s1_));
  runFor(10.0);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmExpiryTest, theStepsArePublishedInTheirOrder) {
  const Ptr<Sm> sm = exclude({{s1_, never}, {s2_, 100.0}}, 10.0);
  sm->doSetTimer(Sm::rexmitTimerId, 50.0);
  watch(sm, "sm");
  watch(sm->groupStatus(), "status");
  runFor(10.0);
  EXPECT_THAT(takeJournal(),
              ElementsAre("sm.membershipTimerExpiry inf", "sm.membershipTimerState timerDisabled",
                          "status.expiryTime inf", "status.source 10.7.0.1", "sm.source 10.7.0.1",
                          "sm.rexmitTimerExpiry inf", "sm.rexmitTimerState timerDisabled",
                          "status.filterMode filterModeInclude"));
}

TEST_F(QuerierGroupSmExpiryTest, aRemovedSourceIsNotAskedAboutAnyMore) {
  const Ptr<Sm> sm = exclude({{s1_, never}, {s2_, 100.0}}, 10.0);
  sm->rexmitSourceIs(s1_, true);
  runFor(10.0);
  EXPECT_TRUE(sm->rexmitSource().empty());
}

TEST_F(QuerierGroupSmExpiryTest, sourcesStillAskedAboutKeepTheRetransmissionTimer) {
  const Ptr<Sm> sm = exclude({{s2_, 100.0}}, 10.0);
  sm->rexmitSourceIs(s2_, true);
  sm->doSetTimer(Sm::rexmitTimerId, 50.0);
  runFor(10.0);
  EXPECT_EQ(rexmitTimer(), 40.0);
}

// Pending group queries do not keep the timer armed: the group they would ask about has ended.
TEST_F(QuerierGroupSmExpiryTest, pendingGroupQueriesDoNotKeepTheRetransmissionTimer) {
  const Ptr<Sm> sm = exclude({{s2_, 100.0}}, 10.0);
  sm->rexmitGroupQueryIs(1);
  sm->doSetTimer(Sm::rexmitTimerId, 50.0);
  runFor(10.0);
  EXPECT_EQ(sm->rexmitTimerState(), timerDisabled);
}

TEST_F(QuerierGroupSmExpiryTest, aSourceTimerThatFiresInTheSameTurnIsKeptByTheGroupExpiry) {
  exclude({{s1_, 10.0}}, 10.0);
  sourceSm(s1_)->doSetTimer(10.0);  // armed behind the group timer
  runFor(10.0);
  EXPECT_FALSE(groupExists());
  EXPECT_EQ(traced("No sources remaining for 239.1.1.1 on vlan10. Removing group"), 1U);
  EXPECT_EQ(traced("Deleting groupSm for group 239.1.1.1"), 0U);
}

// Its last source takes an INCLUDE group along in the middle of the walk.
TEST_F(QuerierGroupSmExpiryTest, anIncludeGroupCanEndInsideTheWalkOverItsSources) {
  const Ptr<Sm> sm = make(filterModeInclude, {{s1_, never}, {s2_, never}}, 10.0);
  const Ptr<QuerierGroupStatus> status = sm->groupStatus();
  watch(status, "status");
  runFor(10.0);
  EXPECT_FALSE(groupExists());
  EXPECT_EQ(groupStatus(group_), nullptr);
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(traced("No sources remaining for 239.1.1.1 on vlan10. Removing group"), 1U);
  EXPECT_EQ(traced("Deleting groupSm for group 239.1.1.1"), 0U);
  const std::vector<std::string> journal = takeJournal();
  ASSERT_EQ(journal.size(), 3U);
  EXPECT_EQ(journal[0], "status.expiryTime inf");
}

TEST_F(QuerierGroupSmExpiryTest, whileTheLogIsCloggedExpiryIsPutOffByLessThanTwoSeconds) {
  const Ptr<Sm> sm = exclude({{s1_, never}, {s2_, 100.0}}, 10.0);
  clog();
  runFor(10.0);
  EXPECT_EQ(traced("Reschedule membership timer as attr log will overflow."), 1U);
  EXPECT_EQ(traced("Membership for 239.1.1.1 on vlan10 expired"), 0U);
  EXPECT_GE(groupTimer(), 0.0);
  EXPECT_LT(groupTimer(), 2.0);
  EXPECT_EQ(groupStatus(group_)->expiryTime(), sm->membershipTimerExpiry());
  EXPECT_EQ(sm->source().size(), 2U);
  EXPECT_EQ(filterMode(), filterModeExclude);
}

TEST_F(QuerierGroupSmExpiryTest, expiryPutOffIsNotLost) {
  exclude({}, 10.0);
  clog();
  runFor(60.0);
  EXPECT_TRUE(groupExists());
  EXPECT_GT(traced("Reschedule membership timer as attr log will overflow."), 30U);
  unclog();
  runFor(2.0);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmExpiryTest, theDelayIsTwiceTheNextRandomNumber) {
  exclude({}, 10.0);
  clog();
  srand48(7);
  const double r = drand48();
  srand48(7);
  runFor(10.0);
  EXPECT_EQ(groupSm(group_)->membershipTimerExpiry(), now() + (r + r));
}

TEST_F(QuerierGroupSmExpiryTest, aQuerierReleasedByANotifieeLeavesTheRestUndone) {
  const Ptr<Sm> sm = exclude({{s1_, never}, {s2_, 100.0}}, 10.0);
  Once<QuerierGroupStatus> once(sm->groupStatus(), "source", [this] { release(); });
  runFor(10.0);
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(sm->ended());
  EXPECT_NE(status_->group(group_), nullptr) << "the end of a querier leaves its status";
  EXPECT_EQ(wheel_->armed(), 0U);
}

TEST_F(QuerierGroupSmExpiryTest, aNotifieeMayUnregisterItselfWhileTheGroupEnds) {
  const Ptr<Sm> sm = exclude({}, 10.0);
  std::unique_ptr<Once<QuerierStatus>> once;
  bool notified = false;
  once = std::make_unique<Once<QuerierStatus>>(status_, "group", [&] {
    notified = true;
    once->notifierIs(nullptr);
  });
  runFor(10.0);
  EXPECT_TRUE(notified);
  EXPECT_FALSE(groupExists());
  EXPECT_EQ(status_->notifieeList().size(), 0U);
}

// Configured version, whether the other older host timer runs, and the mode that follows.
TEST_F(QuerierGroupSmExpiryTest, whenVersion1HostsAreGoneTheModeFollowsTheOthers) {
  const std::vector<std::tuple<IgmpVersion, bool, IgmpVersion>> rows{
      {igmpVersion3, true, igmpVersion2},       {igmpVersion3, false, igmpVersion3},
      {igmpVersion2, true, igmpVersion2},       {igmpVersion2, false, igmpVersion2},
      {igmpVersion1, true, igmpVersion1},       {igmpVersion1, false, igmpVersion1},
      {igmpVersionUnknown, true, igmpVersion2}, {igmpVersionUnknown, false, igmpVersionUnknown},
  };
  const Ptr<Sm> sm = exclude({});
  for (const auto& [configured, v2Hosts, expected] : rows) {
    SCOPED_TRACE(stringValue(configured) + (v2Hosts ? " with version 2 hosts" : ""));
    config_->querierVersionIs(configured);
    sm->groupStatus()->compatibilityModeIs(igmpVersion1);
    sm->doSetTimer(Sm::v2MembershipTimerId, v2Hosts ? 80.0 : never);
    sm->doSetTimer(Sm::v1MembershipTimerId, 1.0);
    runFor(1.0);
    EXPECT_EQ(compatibility(), expected);
    EXPECT_EQ(sm->v1MembershipTimerState(), timerDisabled);
    EXPECT_EQ(sm->v2MembershipTimerState(), v2Hosts ? timerRunning : timerDisabled);
  }
  EXPECT_EQ(traced("V1 Membership for 239.1.1.1 on vlan10 expired"), rows.size());
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleV1MembershipTimer()"), rows.size());
}

TEST_F(QuerierGroupSmExpiryTest, whenVersion2HostsAreGoneTheModeFollowsTheConfiguration) {
  const Ptr<Sm> sm = exclude({});
  for (const IgmpVersion configured :
       {igmpVersionUnknown, igmpVersion1, igmpVersion2, igmpVersion3}) {
    SCOPED_TRACE(stringValue(configured));
    config_->querierVersionIs(configured);
    sm->groupStatus()->compatibilityModeIs(igmpVersion2);
    sm->doSetTimer(Sm::v2MembershipTimerId, 1.0);
    runFor(1.0);
    EXPECT_EQ(compatibility(), configured);
    EXPECT_EQ(sm->v2MembershipTimerState(), timerDisabled);
  }
  EXPECT_EQ(traced("V2 Membership for 239.1.1.1 on vlan10 expired"), 4U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleV2MembershipTimer()"), 4U);
}

TEST_F(QuerierGroupSmExpiryTest, whenVersion2HostsAreGoneVersion1HostsKeepTheMode) {
  const Ptr<Sm> sm = exclude({}, 100.0, igmpVersion1);
  sm->doSetTimer(Sm::v1MembershipTimerId, 50.0);
  sm->doSetTimer(Sm::v2MembershipTimerId, 1.0);
  runFor(1.0);
  EXPECT_EQ(compatibility(), igmpVersion1);
  EXPECT_EQ(sm->v1MembershipTimerState(), timerRunning);
  EXPECT_EQ(sm->v2MembershipTimerState(), timerDisabled);
}

TEST_F(QuerierGroupSmExpiryTest, expiryFallsBackToTheConfiguredVersionNotTheOneInEffect) {
  const Ptr<Sm> sm = exclude({}, 100.0, igmpVersion1);
  status_->querierVersionIs(igmpVersion2);
  sm->doSetTimer(Sm::v1MembershipTimerId, 1.0);
  runFor(1.0);
  EXPECT_EQ(compatibility(), igmpVersion3);
  sm->doSetTimer(Sm::v2MembershipTimerId, 1.0);
  sm->groupStatus()->compatibilityModeIs(igmpVersion2);
  runFor(1.0);
  EXPECT_EQ(compatibility(), igmpVersion3);
}

// The lower of the oldest present host and the version in effect, which every change of it applies.
TEST_F(QuerierGroupSmExpiryTest, aChangeOfTheQuerierVersionGivesTheLowerOfHostsAndQuerier) {
  const Ptr<Sm> sm = exclude({});
  for (const bool v1Hosts : {false, true}) {
    for (const bool v2Hosts : {false, true}) {
      sm->doSetTimer(Sm::v1MembershipTimerId, v1Hosts ? 80.0 : never);
      sm->doSetTimer(Sm::v2MembershipTimerId, v2Hosts ? 80.0 : never);
      const IgmpVersion hosts = v1Hosts ? igmpVersion1 : v2Hosts ? igmpVersion2 : igmpVersion3;
      for (const IgmpVersion version :
           {igmpVersion2, igmpVersion3, igmpVersion1, igmpVersionUnknown, igmpVersion3}) {
        SCOPED_TRACE(stringValue(version) + " on hosts of " + stringValue(hosts));
        config_->querierVersionIs(version);
        EXPECT_EQ(compatibility(), std::min(hosts, version));
      }
    }
  }
  EXPECT_GT(traced("QuerierGroupSm( 239.1.1.1 )::handleQuerierVersion()"), 0U);
}

TEST_F(QuerierGroupSmExpiryTest, aChangeOfTheQuerierVersionReachesUninitializedMachinesToo) {
  const Ptr<Sm> sm = exclude({});
  sm->initializedIs(false);
  status_->querierVersionIs(igmpVersion2);
  sm->handleQuerierVersion();
  EXPECT_EQ(compatibility(), igmpVersion2);
}

TEST_F(QuerierGroupSmExpiryTest, anOlderHostTimerSurvivesTheReleaseOfTheQuerierInItsHandler) {
  const Ptr<Sm> sm = exclude({}, 100.0, igmpVersion1);
  sm->doSetTimer(Sm::v1MembershipTimerId, 1.0);
  Once<QuerierGroupStatus> once(sm->groupStatus(), "compatibilityMode", [this] { release(); });
  runFor(1.0);
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(wheel_->armed(), 0U);
}

TEST_F(QuerierGroupSmExpiryTest, aChangeOfVersionSurvivesTheReleaseOfTheQuerierInANotifiee) {
  const Ptr<QuerierGroupStatus> status = exclude({})->groupStatus();
  Once<QuerierGroupStatus> once(status, "compatibilityMode", [this] { release(); });
  config_->querierVersionIs(igmpVersion2);
  EXPECT_TRUE(once.acted());
  EXPECT_EQ(wheel_->armed(), 0U);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
