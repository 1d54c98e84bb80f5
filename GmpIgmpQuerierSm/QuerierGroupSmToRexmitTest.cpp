// toRexmitState: which sources get retransmissions, and their timers and counts.
#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

class QuerierGroupSmToRexmitTest : public GroupBench {};

TEST_F(QuerierGroupSmToRexmitTest, toRexmitStateLowersAHighTimer) {
  const Ptr<Sm> sm = exclude({{s1_, 200.0}});
  sm->toRexmitState(s1_);
  EXPECT_EQ(timerOf(s1_), lmqt_);
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 2U);
  EXPECT_THAT(rexmitSources(), ElementsAre(s1_));
  EXPECT_EQ(rexmitTimer(), never) << "the caller arms the timer";
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::toRexmitState( 10.7.0.1 )"), 1U);
  EXPECT_EQ(traced("Setting number of retransmits of 10.7.0.1 to 2"), 1U);
}

TEST_F(QuerierGroupSmToRexmitTest, toRexmitStateLeavesALowTimerAndAsks) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}});
  sm->toRexmitState(s1_);
  EXPECT_EQ(timerOf(s1_), 1.0);
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 2U);
  EXPECT_THAT(rexmitSources(), ElementsAre(s1_));
}

TEST_F(QuerierGroupSmToRexmitTest, toRexmitStateDoesNotRestartASourceAlreadyAskedAbout) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}});
  sm->rexmitSourceIs(s1_, true);
  sourceSm(s1_)->rexmitsIs(1);
  sm->toRexmitState(s1_);
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 1U);
  EXPECT_EQ(tracedBegin("Setting number of retransmits"), 0U);
}

TEST_F(QuerierGroupSmToRexmitTest, toRexmitStateRestartsASourceWhoseTimerIsAtOrAboveTheLimit) {
  for (const Seconds left : {2.0, 2.5}) {
    const Ptr<Sm> sm = exclude({{s1_, left}});
    sm->rexmitSourceIs(s1_, true);
    sourceSm(s1_)->rexmitsIs(1);
    sm->toRexmitState(s1_);
    EXPECT_EQ(sourceSm(s1_)->rexmits(), 2U);
    EXPECT_EQ(timerOf(s1_), lmqt_);
  }
}

TEST_F(QuerierGroupSmToRexmitTest, aSourceWithADisabledTimerIsNeverAskedAbout) {
  const Ptr<Sm> sm = exclude({{s1_, never}});
  sm->toRexmitState(s1_);
  EXPECT_TRUE(rexmitSources().empty());
  EXPECT_EQ(timerOf(s1_), never);
  receiveRecord(changeToExclude, group_, {s1_});
  runFor(10.0);
  EXPECT_TRUE(takeSent().empty());
}

TEST_F(QuerierGroupSmToRexmitTest, toRexmitStateIgnoresASourceThatIsNotThere) {
  const Ptr<Sm> sm = exclude({});
  sm->toRexmitState(s1_);
  EXPECT_TRUE(rexmitSources().empty());
  EXPECT_FALSE(sourceExists(s1_));
}

TEST_F(QuerierGroupSmToRexmitTest, withACountOfZeroTheSourceTimerRunsOutAtOnce) {
  config_->lastMemberQueryCountIs(0);
  const Ptr<Sm> sm = exclude({{s1_, 200.0}});
  sm->toRexmitState(s1_);
  EXPECT_EQ(timerOf(s1_), 0.0);
  EXPECT_TRUE(rexmitSources().empty());
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 0U);
}

TEST_F(QuerierGroupSmToRexmitTest, aSourceRemovedWhileItsTimerIsLoweredIsNotQueried) {
  const Ptr<Sm> sm = exclude({{s1_, 200.0}});
  Once<QuerierSourceStatus> once(sourceStatus(s1_), "expiryTime", [&] { sm->sourceDel(s1_); });
  sm->toRexmitState(s1_);
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(rexmitSources().empty());
}

}  // namespace

}  // namespace Gmp::Igmp::testing
