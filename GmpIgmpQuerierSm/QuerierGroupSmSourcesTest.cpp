// The group's collection of source machines, and the end of a group with its last source.
#include <Mox/Errors.h>
#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

using QuerierGroupSmSourcesTest = GroupBench;

TEST_F(QuerierGroupSmSourcesTest, aSourceIsMadeOnceOnTheWheelOfTheGeneralQueries) {
  const Ptr<Sm> sm = exclude({});
  const Ptr<QuerierGroupSourceSm> made = getOrCreateSourceSm(sm, s1_);
  EXPECT_EQ(getOrCreateSourceSm(sm, s1_), made);
  EXPECT_EQ(sm->source().size(), 1U);
  EXPECT_EQ(made->sourceTimer(), querier_->queryIntervalTimer());
  EXPECT_EQ(made->groupSm(), sm.get());
  EXPECT_EQ(made->addr(), s1_);
}

TEST_F(QuerierGroupSmSourcesTest, creationTracesTheSignatureAndTheArguments) {
  getOrCreateSourceSm(exclude({}), s1_);
  EXPECT_EQ(traced("Gmp::Igmp::QuerierGroupSourceSm::Ptr "
                   "Gmp::Igmp::getOrCreateSourceSm(Gmp::Igmp::QuerierGroupSm::Ptr, Ilvo::IpAddr)"
                   "QuerierGroupSm( 239.1.1.1 ) 10.7.0.1"),
            1U);
}

TEST_F(QuerierGroupSmSourcesTest, anInsertionTracesAndDoesNothingMore) {
  const Ptr<Sm> sm = include({});
  watch(sm->groupStatus(), "status");
  sm->sourceIs(s1_, wheel_);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleSource( 10.7.0.1 )"), 1U);
  EXPECT_EQ(tracedBegin("Removing source"), 0U);
  EXPECT_THAT(takeJournal(), ElementsAre("status.source 10.7.0.1"));
  EXPECT_TRUE(groupExists());
}

TEST_F(QuerierGroupSmSourcesTest, aSourceOnTheSameWheelIsReturned) {
  const Ptr<Sm> sm = exclude({{s1_, 5.0}});
  EXPECT_EQ(sm->sourceIs(s1_, wheel_), sourceSm(s1_));
  EXPECT_EQ(timerOf(s1_), 5.0);
}

TEST_F(QuerierGroupSmSourcesTest, aSourceOnAnotherWheelIsRefused) {
  const Ptr<Sm> sm = exclude({{s1_, 5.0}});
  const Sm::Wheel other = makePtr<Obel::TimerWheel>(begin_);
  try {
    sm->sourceIs(s1_, other);
    FAIL() << "another wheel was taken";
  } catch (const Mox::NameInUseError& error) {
    EXPECT_EQ(std::string(error.what()),
              "Reinstantiating the pointer interface where constructor parameter attribute "
              "_sourceTimer has a different value of " +
                  wheelText(other) + " than the current value of " + wheelText(wheel_) +
                  " not allowed");
  }
  EXPECT_EQ(timerOf(s1_), 5.0);
}

TEST_F(QuerierGroupSmSourcesTest, deletingASourceThatIsNotThereIsSilent) {
  const Ptr<Sm> sm = include({});
  traces_.clear();
  sm->sourceDel(s1_);
  EXPECT_TRUE(traces_.empty());
  EXPECT_TRUE(groupExists());
}

TEST_F(QuerierGroupSmSourcesTest, deletingASourceRemovesItsStatusAndItsTimer) {
  const Ptr<Sm> sm = exclude({{s1_, 5.0}, {s2_, 5.0}}, never);
  const Ptr<QuerierGroupSourceSm> removed = sourceSm(s1_);
  sm->sourceDel(s1_);
  EXPECT_FALSE(sourceExists(s1_));
  EXPECT_EQ(sourceStatus(s1_), nullptr);
  EXPECT_TRUE(sourceExists(s2_));
  EXPECT_EQ(removed->groupSm(), nullptr);
  EXPECT_EQ(wheel_->armed(), 1U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleSource( 10.7.0.1 )"), 1U);
  EXPECT_EQ(traced("Removing source 10.7.0.1 for 239.1.1.1 on vlan10"), 1U);
}

TEST_F(QuerierGroupSmSourcesTest, theLastSourceOfAnExcludeGroupLeavesTheGroup) {
  const Ptr<Sm> sm = exclude({{s1_, 5.0}});
  sm->sourceDel(s1_);
  EXPECT_TRUE(groupExists());
  EXPECT_EQ(tracedBegin("No sources remaining"), 0U);
}

TEST_F(QuerierGroupSmSourcesTest, theLastSourceOfAnIncludeGroupTakesTheGroupAlong) {
  const Ptr<Sm> sm = include({{s1_, 5.0}, {s2_, 5.0}});
  sm->sourceDel(s1_);
  EXPECT_TRUE(groupExists());
  sm->sourceDel(s2_);
  EXPECT_FALSE(groupExists());
  EXPECT_EQ(groupStatus(group_), nullptr);
  EXPECT_EQ(traced("No sources remaining for 239.1.1.1 on vlan10. Removing group"), 1U);
  EXPECT_EQ(wheel_->armed(), 0U);
}

TEST_F(QuerierGroupSmSourcesTest, deletingAllSourcesNotifiesOfEach) {
  const Ptr<Sm> sm = exclude({{s1_, 5.0}, {s2_, never}, {s3_, 5.0}});
  watch(sm->groupStatus(), "status");
  sm->sourceDelAll();
  EXPECT_THAT(takeJournal(),
              ::testing::UnorderedElementsAre("status.source 10.7.0.1", "status.source 10.7.0.2",
                                              "status.source 10.7.0.3"));
  EXPECT_TRUE(sm->source().empty());
  EXPECT_TRUE(groupStatus(group_)->source().empty());
  EXPECT_TRUE(groupExists());
}

TEST_F(QuerierGroupSmSourcesTest, deletingAllSourcesOfAnIncludeGroupEndsIt) {
  const Ptr<Sm> sm = include({{s1_, 5.0}, {s2_, 5.0}, {s3_, 5.0}});
  sm->sourceDelAll();
  EXPECT_FALSE(groupExists());
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(tracedBegin("No sources remaining"), 1U);
}

TEST_F(QuerierGroupSmSourcesTest, aGroupHoldsManySources) {
  const Ptr<Sm> sm = include({});
  for (U32 i = 0; i < 1000; ++i) {
    getOrCreateSourceSm(sm, IpAddr(0x0a000000 + i))->doSetTimer(1.0 + i);
  }
  EXPECT_EQ(wheel_->armed(), 1000U);
  runFor(500.0);
  EXPECT_EQ(sm->source().size(), 500U);
  EXPECT_EQ(sm->groupStatus()->source().size(), 500U);
  runFor(500.0);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmSourcesTest, aGroupThatEndsTakesItsSourcesTimersAlong) {
  include({{s1_, 5.0}, {s2_, 5.0}});
  const Ptr<QuerierGroupSourceSm> held = sourceSm(s1_);
  querier_->groupSmDel(group_);
  EXPECT_EQ(wheel_->armed(), 0U);
  held->handleSourceTimer();
  EXPECT_EQ(held->groupSm(), nullptr);
  EXPECT_EQ(tracedBegin("Source 10.7.0.1"), 0U);
}

TEST_F(QuerierGroupSmSourcesTest, theQuerierMayBeReleasedWhileTheLastSourceGoes) {
  const Ptr<Sm> sm = include({{s1_, 5.0}});
  const Ptr<QuerierGroupStatus> status = sm->groupStatus();
  Once<QuerierGroupStatus> once(status, "source", [this] { release(); });
  runFor(5.0);
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(wheel_->armed(), 0U);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
