// The source machine: its timer, what it publishes, its expiry.
#include <limits>

#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

using QuerierGroupSourceSmTest = GroupBench;

TEST_F(QuerierGroupSourceSmTest, aSourceWithoutATimerShowsExpiredAndInfinity) {
  runFor(3.0);
  const Ptr<QuerierGroupSourceSm> sm = getOrCreateSourceSm(exclude({}), s1_);
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->sourceTimerState(), timerDisabled);
  EXPECT_EQ(sm->sourceTimerExpiry(), never);
  EXPECT_EQ(sm->sourceTimerRemaining(), never);
  EXPECT_EQ(sm->rexmits(), 0U);
  EXPECT_EQ(sm->sourceStatus(), sourceStatus(s1_));
  EXPECT_TRUE(sourceStatus(s1_)->expired());
  EXPECT_EQ(sourceStatus(s1_)->expiryTime(), never);
  EXPECT_EQ(sourceStatus(s1_)->creationTime(), begin_ + 3.0);
}

TEST_F(QuerierGroupSourceSmTest, creationTracesItsSteps) {
  const Ptr<Sm> group = exclude({});
  traces_.clear();
  group->sourceIs(s1_, wheel_);
  EXPECT_THAT(
      traceTexts(),
      ElementsAre(
          "QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::handleInitialized()",
          "QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::handleInitialized(): add source "
          "10.7.0.1 to status",
          "QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::doSetTimer( inf )",
          "QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::doSetTimer: Setting source timer for "
          "vlan10:239.1.1.1:10.7.0.1 to expire in inf @ inf",
          "QuerierGroupSm( 239.1.1.1 )::handleSource( 10.7.0.1 )"));
}

TEST_F(QuerierGroupSourceSmTest, anEntryThatExistsIsUsedUnchanged) {
  const Ptr<Sm> group = exclude({});
  const Ptr<QuerierSourceStatus> entry = group->groupStatus()->sourceIs(s1_);
  entry->creationTimeIs(3.0);
  const Ptr<QuerierGroupSourceSm> sm = getOrCreateSourceSm(group, s1_);
  EXPECT_EQ(sm->sourceStatus(), entry);
  EXPECT_EQ(entry->creationTime(), 3.0);
  EXPECT_TRUE(entry->expired());
  EXPECT_EQ(
      traced("QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::handleInitialized(): a source status "
             "for 10.7.0.1 already exists"),
      1U);
}

TEST_F(QuerierGroupSourceSmTest, settingTheTimerPublishesTheFlagFirstAndTheTimeLast) {
  exclude({{s1_, never}});
  watch(sourceSm(s1_), "sm");
  watch(sourceStatus(s1_), "status");
  sourceSm(s1_)->doSetTimer(30.5);
  EXPECT_THAT(takeJournal(),
              ElementsAre("status.expired false", "sm.sourceTimerExpiry 1030.5",
                          "sm.sourceTimerState timerRunning", "status.expiryTime 1030.5"));
  EXPECT_EQ(timerOf(s1_), 30.5);
  sourceSm(s1_)->doSetTimer(never);
  EXPECT_THAT(takeJournal(),
              ElementsAre("status.expired true", "sm.sourceTimerExpiry inf",
                          "sm.sourceTimerState timerDisabled", "status.expiryTime inf"));
}

TEST_F(QuerierGroupSourceSmTest, theTimerTracesWithInterfaceGroupAndSource) {
  exclude({{s1_, never}});
  sourceSm(s1_)->doSetTimer(2.5);
  EXPECT_THAT(
      traceTexts(),
      ElementsAre(
          "QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::doSetTimer( 2.5 )",
          "QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::doSetTimer: Setting source timer for "
          "vlan10:239.1.1.1:10.7.0.1 to expire in 2.5 @ 1002.5"));
}

TEST_F(QuerierGroupSourceSmTest, theLargestFiniteDelayStillRunsTheTimer) {
  exclude({{s1_, std::numeric_limits<Seconds>::max()}});
  EXPECT_EQ(sourceSm(s1_)->sourceTimerState(), timerRunning);
  EXPECT_FALSE(sourceStatus(s1_)->expired());
}

TEST_F(QuerierGroupSourceSmTest, aZeroDelayFiresAtTheNextTurn) {
  exclude({{s1_, 0.0}});
  EXPECT_FALSE(sourceStatus(s1_)->expired());
  runFor(0.0);
  EXPECT_TRUE(sourceStatus(s1_)->expired());
}

TEST_F(QuerierGroupSourceSmTest, anUninitializedMachineIgnoresItsTimer) {
  include({{s1_, 5.0}});
  sourceSm(s1_)->initializedIs(false);
  traces_.clear();
  sourceSm(s1_)->handleSourceTimer();
  EXPECT_TRUE(traces_.empty());
  EXPECT_TRUE(sourceExists(s1_));
}

TEST_F(QuerierGroupSourceSmTest, aTimerMovedToAnotherWheelKeepsItsTime) {
  include({{s1_, 5.0}});
  const auto other = makePtr<Obel::TimerWheel>(begin_);
  watch(sourceSm(s1_), "source");
  sourceSm(s1_)->sourceTimerIs(other);
  EXPECT_THAT(takeJournal(), ::testing::ElementsAre("source.sourceTimer"));
  EXPECT_EQ(sourceSm(s1_)->sourceTimer(), other);
  runFor(5.0);
  EXPECT_TRUE(groupExists());
  other->turn(now());
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSourceSmTest, theRetransmissionCountGoesDownByWhatIsSent) {
  include({{s1_, 5.0}});
  sourceSm(s1_)->rexmitsIs(3);
  sourceSm(s1_)->rexmitsDec(2);
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 1U);
}

TEST_F(QuerierGroupSourceSmTest, theOnlySourceOfAnIncludeGroupEndsEverything) {
  const Ptr<Sm> group = include({{s1_, 5.0}});
  group->rexmitSourceIs(s1_, true);
  runFor(5.0);
  EXPECT_FALSE(groupExists());
  EXPECT_EQ(groupStatus(group_), nullptr);
  EXPECT_TRUE(group->groupStatus()->source().empty());
  EXPECT_EQ(traced("QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::handleSourceTimer()"), 1U);
  EXPECT_EQ(traced("Source 10.7.0.1 for 239.1.1.1 on vlan10 expired at 1005"), 1U);
  EXPECT_EQ(traced("Removing source 10.7.0.1 for 239.1.1.1 on vlan10"), 2U)
      << "once as it expires, once as it leaves the collection";
  EXPECT_EQ(traced("No sources remaining for 239.1.1.1 on vlan10. Removing group"), 1U);
  EXPECT_EQ(wheel_->armed(), 0U);
}

TEST_F(QuerierGroupSourceSmTest, anExpiredSourceOfAnIncludeGroupIsNotAskedAboutAnyMore) {
  const Ptr<Sm> group = include({{s1_, 5.0}, {s2_, 50.0}});
  group->rexmitSourceIs(s1_, true);
  group->rexmitSourceIs(s2_, true);
  runFor(5.0);
  EXPECT_FALSE(sourceExists(s1_));
  EXPECT_EQ(sourceStatus(s1_), nullptr);
  EXPECT_THAT(rexmitSources(), ElementsAre(s2_));
}

TEST_F(QuerierGroupSourceSmTest, anExpiredSourceOfAnExcludeGroupStaysExcluded) {
  exclude({{s1_, 5.0}});
  watch(sourceStatus(s1_), "status");
  runFor(5.0);
  EXPECT_TRUE(sourceExists(s1_));
  EXPECT_EQ(sourceSm(s1_)->sourceTimerState(), timerDisabled);
  EXPECT_THAT(takeJournal(), ElementsAre("status.expired true", "status.expiryTime inf"));
  EXPECT_EQ(tracedBegin("Removing source"), 0U);
}

TEST_F(QuerierGroupSourceSmTest, anExpiredSourceOfAnExcludeGroupStaysInTheRetransmissions) {
  const Ptr<Sm> group = exclude({{s1_, 5.0}});
  group->rexmitSourceIs(s1_, true);
  runFor(5.0);
  EXPECT_THAT(rexmitSources(), ElementsAre(s1_));
}

TEST_F(QuerierGroupSourceSmTest, whileTheLogIsCloggedExpiryIsPutOffByLessThanTenSeconds) {
  include({{s1_, 5.0}});
  clog();
  srand48(11);
  const double r = drand48();
  srand48(11);
  runFor(5.0);
  ASSERT_TRUE(sourceExists(s1_));
  EXPECT_EQ(sourceSm(s1_)->sourceTimerExpiry(), now() + r * 10.0);
  EXPECT_LT(timerOf(s1_), 10.0);
  EXPECT_FALSE(sourceStatus(s1_)->expired());
  EXPECT_EQ(sourceStatus(s1_)->expiryTime(), begin_ + 5.0) << "the new time is not published";
  EXPECT_EQ(traced("Postponing Source Cleanup for a few seconds."), 1U);
  EXPECT_EQ(traced("Source 10.7.0.1 for 239.1.1.1 on vlan10 expired at 1005"), 1U);
}

TEST_F(QuerierGroupSourceSmTest, expiryPutOffIsNotLost) {
  include({{s1_, 5.0}});
  clog();
  runFor(200.0);
  EXPECT_TRUE(groupExists());
  EXPECT_GE(traced("Postponing Source Cleanup for a few seconds."), 20U);
  unclog();
  runFor(10.0);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSourceSmTest, whileTheLogIsCloggedOnlyTheFlagIsPublished) {
  exclude({{s1_, never}});
  clog();
  watch(sourceSm(s1_), "sm");
  watch(sourceStatus(s1_), "status");
  sourceSm(s1_)->doSetTimer(30.0);
  EXPECT_THAT(takeJournal(), ElementsAre("status.expired false", "sm.sourceTimerExpiry 1030",
                                         "sm.sourceTimerState timerRunning"));
  EXPECT_EQ(sourceStatus(s1_)->expiryTime(), never);
  unclog();
  sourceSm(s1_)->doSetTimer(40.0);
  EXPECT_EQ(sourceStatus(s1_)->expiryTime(), begin_ + 40.0);
}

TEST_F(QuerierGroupSourceSmTest, manySourcesOfOneTurnEndTogether) {
  const Ptr<Sm> group = include({{s1_, 5.0}, {s2_, 5.0}, {s3_, 5.0}});
  runFor(5.0);
  EXPECT_FALSE(groupExists());
  EXPECT_TRUE(group->ended());
  EXPECT_EQ(tracedBegin("No sources remaining"), 1U);
}

// The group ends inside the source's own timer callback, and the querier with it.
TEST_F(QuerierGroupSourceSmTest, theQuerierMayBeReleasedWhileASourceExpires) {
  const Ptr<Sm> group = include({{s1_, 5.0}, {s2_, 50.0}});
  const Ptr<QuerierSourceStatus> status = sourceStatus(s1_);
  Once<QuerierSourceStatus> once(status, "expired", [this] { release(); });
  runFor(5.0);
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(group->ended());
  EXPECT_EQ(wheel_->armed(), 0U);
}

TEST_F(QuerierGroupSourceSmTest, aNotifieeMayReleaseTheStatusThatNotifiesIt) {
  include({{s1_, 5.0}});
  std::unique_ptr<Once<QuerierSourceStatus>> once;
  once = std::make_unique<Once<QuerierSourceStatus>>(sourceStatus(s1_), "expired",
                                                     [&] { once->notifierIs(nullptr); });
  runFor(5.0);
  EXPECT_TRUE(once->acted());
  EXPECT_FALSE(groupExists());
}

}  // namespace

}  // namespace Gmp::Igmp::testing
