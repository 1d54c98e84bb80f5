#include "LoopWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

using testing::ElementsAre;

class LoopWatchTest : public testing::Test {
 protected:
  LoopWatchTest() { Mox::virtualTimeIs(1000.0); }
  ~LoopWatchTest() override { Mox::realTimeIs(); }

  void pass(Mox::Seconds time) { Mox::virtualTimeIs(Mox::now() + time); }
  void readRings(Mox::Seconds time = 0.0) {
    watch_.ringsReadBegins();
    pass(time);
    watch_.ringsReadEnds();
  }

  const LoopState& published() {
    watch_.publish();
    return *watch_.state();
  }

  LoopWatch watch_;
};

TEST_F(LoopWatchTest, gapIsTheLongestBetweenTwoReadingsOfTheRings) {
  pass(5.0);
  readRings();
  EXPECT_EQ(published().longestGap(), 0.0) << "before the first";
  pass(1.0);
  readRings();
  pass(2.0);
  readRings();
  pass(0.5);
  readRings();
  EXPECT_DOUBLE_EQ(published().longestGap(), 2.0);
}

TEST_F(LoopWatchTest, readingIsNoGap) {
  readRings(3.0);
  readRings(3.0);
  EXPECT_EQ(published().longestGap(), 0.0);
}

TEST_F(LoopWatchTest, gapEndsWhereTheLoopSleeps) {
  readRings();
  pass(1.0);
  watch_.sleepBegins();
  EXPECT_DOUBLE_EQ(published().longestGap(), 1.0);
  pass(100.0);
  readRings();
  EXPECT_DOUBLE_EQ(published().longestGap(), 1.0);
  pass(2.0);
  readRings();
  EXPECT_DOUBLE_EQ(published().longestGap(), 2.0);
}

// The virtual time stands still, so it is the time of the processor that counts.
TEST_F(LoopWatchTest, workAfterASleepIsAGap) {
  readRings();
  watch_.sleepBegins();
  while (published().longestGap() == 0.0) watch_.ringsReadBegins();
}

TEST_F(LoopWatchTest, openingOfPortsAtTheStartIsNoGap) {
  readRings();
  pass(1.0);
  watch_.gapDel();
  readRings();
  EXPECT_EQ(published().longestGap(), 0.0);
}

TEST_F(LoopWatchTest, batchesAreCounted) {
  for (int batch = 0; batch < 3; ++batch) readRings();
  EXPECT_EQ(published().batches(), 3u);
}

TEST_F(LoopWatchTest, gapsAreCountedByTheirLength) {
  readRings();
  for (const Mox::Seconds gap : {0.0004, 0.0006, 0.003, 0.09, 0.9, 5.0}) {
    pass(gap);
    readRings();
  }
  const DelayCounts gaps = published().gaps();
  EXPECT_THAT(gaps.counts, ElementsAre(1, 1, 0, 1, 0, 0, 0, 1, 1, 1));
  EXPECT_NEAR(gaps.sum, 5.994, 1e-9);
}

TEST_F(LoopWatchTest, queriesAreCountedByTheirDelay) {
  for (const Mox::Seconds delay : {0.0, 0.002, 0.03, 2.0}) watch_.querySent(delay);
  const DelayCounts delays = published().queryDelays();
  EXPECT_THAT(delays.counts, ElementsAre(1, 0, 1, 0, 0, 0, 1, 0, 0, 1));
  EXPECT_DOUBLE_EQ(delays.sum, 2.032);
}

// Each publication is work for the loop: without a limit, an idle agent would never sleep.
TEST_F(LoopWatchTest, isPublishedOnceASecondAtMost) {
  readRings();
  watch_.publishIfDue();
  EXPECT_EQ(watch_.state()->batches(), 1u);
  readRings();
  pass(0.5 * LoopWatch::publishInterval);
  watch_.publishIfDue();
  EXPECT_EQ(watch_.state()->batches(), 1u);
  pass(0.5 * LoopWatch::publishInterval);
  watch_.publishIfDue();
  EXPECT_EQ(watch_.state()->batches(), 2u);
}

}  // namespace
}  // namespace Agent
