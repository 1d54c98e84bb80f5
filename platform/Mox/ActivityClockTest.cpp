#include <Mox/ActivityClock.h>

#include <ctime>

#include <gtest/gtest.h>

namespace Mox {
namespace {

struct ActivityClockTest : testing::Test {
  ~ActivityClockTest() override { realTimeIs(); }

  static Seconds machineTime() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<Seconds>(time.tv_sec) + static_cast<Seconds>(time.tv_nsec) * 1e-9;
  }
};

TEST_F(ActivityClockTest, showsTheMonotonicTimeOfTheMachine) {
  realTimeIs();
  const Seconds before = machineTime();
  const Seconds shown = now();
  EXPECT_LE(before, shown);
  EXPECT_LE(shown, machineTime());
}

TEST_F(ActivityClockTest, standsWhereItWasSet) {
  virtualTimeIs(1000.5);
  EXPECT_EQ(now(), 1000.5);
  EXPECT_EQ(now(), 1000.5);
  virtualTimeIs(1.0);
  EXPECT_EQ(now(), 1.0);
}

TEST_F(ActivityClockTest, goesBackToTheMachinesTime) {
  virtualTimeIs(-5.0);
  realTimeIs();
  EXPECT_GT(now(), 0.0);
}

TEST_F(ActivityClockTest, remembersTheTimeThatItShowedLast) {
  realTimeIs();
  const Seconds shown = now();
  EXPECT_EQ(lastNow(), shown);
  virtualTimeIs(7.0);
  EXPECT_EQ(lastNow(), 7.0);
}

}  // namespace
}  // namespace Mox
