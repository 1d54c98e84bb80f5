#include "LoopState.h"

#include <gtest/gtest.h>

#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

class LoopStateTest : public testing::Test {
 protected:
  LoopStateTest() { Mox::virtualTimeIs(1000.0); }
  ~LoopStateTest() override { Mox::realTimeIs(); }

  void pass(Mox::Seconds time) { Mox::virtualTimeIs(Mox::now() + time); }
  void readRings(Mox::Seconds time = 0.0) {
    state_->ringsReadBegins();
    pass(time);
    state_->ringsReadEnds();
  }

  const Mox::Ptr<LoopState> state_ = Mox::makePtr<LoopState>();
};

TEST_F(LoopStateTest, gapIsTheLongestBetweenTwoReadingsOfTheRings) {
  pass(5.0);
  readRings();
  EXPECT_EQ(state_->longestGap(), 0.0) << "before the first";
  pass(1.0);
  readRings();
  pass(2.0);
  readRings();
  pass(0.5);
  readRings();
  EXPECT_DOUBLE_EQ(state_->longestGap(), 2.0);
}

TEST_F(LoopStateTest, readingIsNoGap) {
  readRings(3.0);
  readRings(3.0);
  EXPECT_EQ(state_->longestGap(), 0.0);
}

TEST_F(LoopStateTest, gapEndsWhereTheLoopSleeps) {
  readRings();
  pass(1.0);
  state_->sleepBegins();
  EXPECT_DOUBLE_EQ(state_->longestGap(), 1.0);
  pass(100.0);
  readRings();
  EXPECT_DOUBLE_EQ(state_->longestGap(), 1.0);
  pass(2.0);
  readRings();
  EXPECT_DOUBLE_EQ(state_->longestGap(), 2.0);
}

// The virtual time stands still, so it is the time of the processor that counts.
TEST_F(LoopStateTest, workAfterASleepIsAGap) {
  readRings();
  state_->sleepBegins();
  while (state_->longestGap() == 0.0) state_->ringsReadBegins();
}

TEST_F(LoopStateTest, openingOfPortsAtTheStartIsNoGap) {
  readRings();
  pass(1.0);
  state_->gapDel();
  readRings();
  EXPECT_EQ(state_->longestGap(), 0.0);
}

TEST_F(LoopStateTest, batchesAreCounted) {
  for (int batch = 0; batch < 3; ++batch) readRings();
  EXPECT_EQ(state_->batches(), 3u);
}

}  // namespace
}  // namespace Agent
