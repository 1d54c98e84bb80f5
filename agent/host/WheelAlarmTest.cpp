#include "WheelAlarm.h"

#include <Mox/ActivityClock.h>
#include <gtest/gtest.h>

namespace Agent {
namespace {

// Times that were reached only: the loop's own timer then expires at once.
class WheelAlarmTest : public testing::Test {
 protected:
  WheelAlarmTest() { Mox::virtualTimeIs(1000.0); }
  ~WheelAlarmTest() override { Mox::realTimeIs(); }

  boost::asio::io_context io_{1};
  int wakeUps_ = 0;
  WheelAlarm alarm_{io_, [this] { ++wakeUps_; }};
};

TEST_F(WheelAlarmTest, wakesTheLoopAtATimeThatWasReached) {
  alarm_.timeIs(999.0);
  io_.run();
  EXPECT_EQ(wakeUps_, 1);
}

// The loop's timer may expire a moment before the wheel's does: the same time is then set again.
TEST_F(WheelAlarmTest, wakesTheLoopAgainForTheSameTime) {
  alarm_.timeIs(1000.0);
  io_.run();
  io_.restart();
  alarm_.timeIs(1000.0);
  io_.run();
  EXPECT_EQ(wakeUps_, 2);
}

TEST_F(WheelAlarmTest, doesNotWakeTheLoopOnceThereIsNoTimer) {
  alarm_.timeIs(1000.0);
  alarm_.timeIs(Mox::never);
  io_.run();
  EXPECT_EQ(wakeUps_, 0);
}

}  // namespace
}  // namespace Agent
