// The ends of the number line, jumping clocks, and lifetimes.
#include <limits>

#include "TimerWheelTestSupport.h"

namespace Obel {
namespace {

using Mox::never;
using Mox::Seconds;
using TimerWheelEdgeTest = TimerWheelFixture;

constexpr Seconds year = 86400.0 * 365;

TEST_F(TimerWheelEdgeTest, notANumberIsNever) {
  arm('a', 1010.0);
  arm('a', std::numeric_limits<Seconds>::quiet_NaN());
  EXPECT_EQ(timer('a').timeMin(), never);
  EXPECT_EQ(wheel_->armed(), 0u);
  wheel_->advanceTo(2000.0);
  EXPECT_EQ(fired_, "");
}

TEST_F(TimerWheelEdgeTest, pastTimesFireAtTheNextTurnByTheirTimes) {
  arm('c', 999.0);
  arm('b', -1e300);
  arm('a', -never);
  arm('d', 1000.0);
  EXPECT_LE(wheel_->nextDue(), wheel_->now());
  EXPECT_EQ(wheel_->turn(1000.0), 4u);
  EXPECT_EQ(fired_, "abcd");
}

TEST_F(TimerWheelEdgeTest, aDisarmedPastTimeLeavesTheOthersTheirs) {
  arm('a', -never);
  arm('b', 1000.004);
  disarm('a');
  wheel_->turn(1000.0);
  EXPECT_EQ(fired_, "");
  EXPECT_EQ(wheel_->nextDue(), 1000.004);
}

TEST_F(TimerWheelEdgeTest, farTimersFireInOrderWhenTheirTimeComes) {
  arm('f', std::numeric_limits<Seconds>::max());
  arm('e', 1e300);
  arm('d', 1e15);
  arm('c', 1e12);
  arm('b', 30.0 * year);
  arm('a', year);
  wheel_->advanceTo(year - 0.001);
  EXPECT_EQ(fired_, "");
  wheel_->advanceTo(year);
  EXPECT_EQ(fired_, "a");
  wheel_->advanceTo(30.0 * year);
  EXPECT_EQ(fired_, "ab");
  wheel_->turn(1e12);
  EXPECT_EQ(fired_, "abc");
  wheel_->turn(1e15);
  EXPECT_EQ(fired_, "abcd");
  wheel_->turn(9.9e299);
  EXPECT_EQ(fired_, "abcd");
  wheel_->turn(1e300);
  EXPECT_EQ(fired_, "abcde");
  wheel_->turn(std::numeric_limits<Seconds>::max());
  EXPECT_EQ(fired_, "abcdef");
}

TEST_F(TimerWheelEdgeTest, aTimerBeyondTheLastLevelIsFiledOnUntilItIsDue) {
  arm('a', 3.5 * year);
  EXPECT_LE(wakeUpsUntil(3.5 * year), 10);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelEdgeTest, advancingToNeverFiresAllThatIsThere) {
  arm('b', 1e18);
  arm('a', 5000.0);
  wheel_->advanceTo(never);
  EXPECT_EQ(fired_, "ab");
  EXPECT_EQ(wheel_->now(), 1e18);
}

TEST_F(TimerWheelEdgeTest, aClockThatJumpsByYearsFiresAllInOrderAtOnce) {
  arm('d', 3.0 * year);
  arm('b', 2000.0);
  arm('c', year);
  arm('a', 1000.5);
  arm('e', 9.0 * year, [] {});
  EXPECT_EQ(wheel_->turn(8.0 * year), 4u);
  EXPECT_EQ(fired_, "abcd");
  EXPECT_EQ(wheel_->turn(9.0 * year), 1u);
}

TEST_F(TimerWheelEdgeTest, timersPutOffBeyondAJumpStayArmed) {
  arm('a', 1001.0);
  arm('a', year);
  wheel_->turn(year / 2);
  EXPECT_EQ(fired_, "");
  EXPECT_EQ(wheel_->armed(), 1u);
  wheel_->advanceTo(year);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelEdgeTest, anEarlierTurnActsAtTheOldTime) {
  wheel_->turn(2000.0);
  arm('a', 1500.0);
  EXPECT_EQ(wheel_->turn(1200.0), 1u);
  EXPECT_EQ(wheel_->now(), 2000.0);
}

TEST_F(TimerWheelEdgeTest, aTurnWithoutATimeActsAtTheOldTime) {
  arm('a', 1500.0);
  EXPECT_EQ(wheel_->turn(never), 0u);
  EXPECT_EQ(wheel_->turn(std::numeric_limits<Seconds>::quiet_NaN()), 0u);
  EXPECT_EQ(wheel_->now(), 1000.0);
}

TEST_F(TimerWheelEdgeTest, timesBeforeZeroAreTimes) {
  const auto early = Mox::makePtr<TimerWheel>(-1000.0);
  Mark b(early, fired_, 'b');
  Mark a(early, fired_, 'a');
  b.timeMinIs(1.0);
  a.timeMinIs(-999.999);
  EXPECT_LE(early->nextDue(), -999.999);
  early->turn(-999.9995);
  EXPECT_EQ(fired_, "");
  early->advanceTo(0.5);
  EXPECT_EQ(fired_, "a");
  early->advanceTo(1.0);
  EXPECT_EQ(fired_, "ab");
}

// Every distance in ticks around the ends of the levels, from starts around the ends of rounds.
TEST_F(TimerWheelEdgeTest, isOnTimeAtTheEdgesOfEveryLevel) {
  constexpr Seconds tick = 1.0 / 128;
  for (const double start : {0.0, 255.0, 256.0, 65535.0, 65536.0, 16777215.0, 4294967295.0}) {
    for (const double distance : {1.0, 255.0, 256.0, 65535.0, 65536.0, 16777215.0, 16777216.0,
                                  4294967294.0, 4294967295.0, 4294967296.0, 4294967297.0}) {
      SCOPED_TRACE(testing::Message() << "start " << start << " distance " << distance);
      const auto wheel = Mox::makePtr<TimerWheel>(start * tick);
      Mark mark(wheel, fired_, 'a');
      const Seconds at = (start + distance) * tick;
      mark.timeMinIs(at);
      fired_.clear();
      wheel->advanceTo(at - tick / 2);
      EXPECT_EQ(fired_, "");
      wheel->advanceTo(at);
      EXPECT_EQ(fired_, "a");
    }
  }
}

TEST_F(TimerWheelEdgeTest, timersHoldTheirWheel) {
  auto wheel = Mox::makePtr<TimerWheel>(0.0);
  Mark mark(wheel, fired_, 'a');
  EXPECT_EQ(wheel->refs(), 2u);
  wheel = nullptr;
  mark.timeMinIs(5.0);
  EXPECT_EQ(mark.wheel()->armed(), 1u);
}

TEST_F(TimerWheelEdgeTest, aCallbackMayDropTheLastPointerToTheWheel) {
  auto wheel = Mox::makePtr<TimerWheel>(0.0);
  auto mark = std::make_unique<Mark>(wheel, fired_, 'a');
  mark->timeMinIs(5.0);
  mark->then_ = [&] {
    mark.reset();
    wheel = nullptr;
  };
  wheel->advanceTo(10.0);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelEdgeTest, aCallbackMayDropTheWheelThatItsHostTurns) {
  auto wheel = Mox::makePtr<TimerWheel>(0.0);
  auto first = std::make_unique<Mark>(wheel, fired_, 'a');
  auto second = std::make_unique<Mark>(wheel, fired_, 'b');
  first->timeMinIs(5.0);
  second->timeMinIs(6.0);
  first->then_ = [&] {
    first.reset();
    second.reset();
    wheel = nullptr;
  };
  EXPECT_EQ(wheel->turn(10.0), 1u);
  EXPECT_EQ(fired_, "a");
}

using TimerWheelDeathTest = TimerWheelFixture;

TEST_F(TimerWheelDeathTest, aCallbackDoesNotTurnTheWheel) {
  arm('a', 1001.0, [&] { wheel_->turn(1002.0); });
  EXPECT_DEATH(wheel_->turn(1001.0), "a callback does not turn the wheel");
}

TEST_F(TimerWheelDeathTest, aWheelStartsAtAFiniteTime) {
  EXPECT_DEATH(TimerWheel wheel(never), "start is finite");
}

}  // namespace
}  // namespace Obel
