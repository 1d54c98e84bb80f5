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

TEST_F(ActivityClockTest, standsAtTheTimeAtWhichItIsStopped) {
  realTimeIs();
  const Seconds before = now();
  while (machineTime() <= before) {
  }
  const Seconds bound = machineTime();
  {
    const StandingClock standing;
    const Seconds stopped = now();
    EXPECT_GE(stopped, bound) << "not at the time that was read last";
    while (machineTime() <= stopped) {
    }
    EXPECT_EQ(now(), stopped);
    {
      const StandingClock within;
      EXPECT_EQ(now(), stopped);
    }
    EXPECT_EQ(now(), stopped) << "the outer one still lives";
  }
  const Seconds after = machineTime();
  EXPECT_GE(now(), after);
}

}  // namespace
}  // namespace Mox
