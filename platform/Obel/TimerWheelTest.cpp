#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>

#include "TimerWheelTestSupport.h"

namespace Obel {
namespace {

using Mox::never;
using TimerWheelTest = TimerWheelFixture;

TEST_F(TimerWheelTest, firesAtItsTimeAndNotBefore) {
  arm('a', 1005.0);
  wheel_->turn(1004.999);
  EXPECT_EQ(fired_, "");
  EXPECT_EQ(wheel_->turn(1005.0), 1u);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelTest, isNotEarlyWithinATick) {
  arm('a', 1000.0075);
  arm('b', 1000.0005);
  wheel_->turn(1000.0);
  wheel_->turn(1000.001);
  EXPECT_EQ(fired_, "b");
  wheel_->turn(1000.00749);
  EXPECT_EQ(fired_, "b");
  wheel_->turn(1000.0075);
  EXPECT_EQ(fired_, "ba");
}

TEST_F(TimerWheelTest, firesByTimeWhateverTheOrderOfArming) {
  arm('c', 1300.0);
  arm('a', 1001.0);
  arm('d', 99000.0);
  arm('b', 1001.001);
  wheel_->turn(100000.0);
  EXPECT_EQ(fired_, "abcd");
}

TEST_F(TimerWheelTest, equalTimesFireInTheOrderOfArming) {
  for (const char mark : std::string("fedcba")) arm(mark, 1500.0);
  wheel_->advanceTo(1500.0);
  EXPECT_EQ(fired_, "fedcba");
}

TEST_F(TimerWheelTest, rearmingForTheSameTimeGoesBehindTheEquals) {
  for (const char mark : std::string("abc")) arm(mark, 1500.0);
  arm('a', 1500.0);
  wheel_->advanceTo(1500.0);
  EXPECT_EQ(fired_, "bca");
}

TEST_F(TimerWheelTest, rearmingForTheSameReachedTimeGoesBehindTheEquals) {
  for (const char mark : std::string("abc")) arm(mark, 1000.0);
  arm('a', 1000.0);
  wheel_->turn(1000.0);
  EXPECT_EQ(fired_, "bca");
}

TEST_F(TimerWheelTest, rearmingLaterAndBackCountsAsArming) {
  for (const char mark : std::string("abc")) arm(mark, 1500.0);
  arm('a', 1900.0);
  arm('a', 1500.0);
  wheel_->advanceTo(1500.0);
  EXPECT_EQ(fired_, "bca");
}

TEST_F(TimerWheelTest, equalTimesFiledFromNearAndFarFireInTheOrderOfArming) {
  arm('a', 1300.0);
  wheel_->advanceTo(1299.0);
  arm('b', 1300.0);
  wheel_->advanceTo(1299.999);
  arm('c', 1300.0);
  wheel_->advanceTo(1300.0);
  EXPECT_EQ(fired_, "abc");
}

TEST_F(TimerWheelTest, rearmingLaterPutsItOff) {
  arm('a', 1010.0);
  arm('a', 1400.0);
  wheel_->advanceTo(1399.0);
  EXPECT_EQ(fired_, "");
  wheel_->advanceTo(1400.0);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelTest, rearmingEarlierBringsItForward) {
  arm('a', 1400.0);
  arm('a', 1010.0);
  wheel_->advanceTo(1010.0);
  EXPECT_EQ(fired_, "a");
  wheel_->advanceTo(2000.0);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelTest, disarmedDoesNotFire) {
  arm('a', 1010.0);
  arm('b', 1010.0);
  disarm('a');
  EXPECT_EQ(timer('a').timeMin(), never);
  wheel_->advanceTo(2000.0);
  EXPECT_EQ(fired_, "b");
}

TEST_F(TimerWheelTest, disarmedCanBeArmedAgain) {
  arm('a', 1010.0);
  disarm('a');
  arm('a', 1005.0);
  wheel_->advanceTo(1005.0);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelTest, destroyedDoesNotFire) {
  arm('a', 1010.0);
  arm('b', 1010.0);
  arm('c', 1000.0);
  destroy('a');
  destroy('c');
  wheel_->advanceTo(2000.0);
  EXPECT_EQ(fired_, "b");
}

TEST_F(TimerWheelTest, isIdleWhenItsCallbackBegins) {
  arm('a', 1010.0, [&] {
    EXPECT_EQ(timer('a').timeMin(), never);
    EXPECT_EQ(wheel_->armed(), 0u);
    EXPECT_EQ(wheel_->now(), 1010.0);
  });
  wheel_->advanceTo(3000.0);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelTest, armedForAReachedTimeFiresInTheNextTurnWhichFollowsAtOnce) {
  arm('a', 1001.0, [&] { arm('c', 1001.0); });
  arm('b', 1001.0);
  EXPECT_EQ(wheel_->turn(1001.0), 2u);
  EXPECT_EQ(fired_, "ab");
  EXPECT_LE(wheel_->nextDue(), wheel_->now());
  wheel_->turn(1001.0);
  EXPECT_EQ(fired_, "abc");
}

TEST_F(TimerWheelTest, armedForThePastByACallbackDoesNotOvertakeWhatIsDue) {
  arm('a', 1001.0, [&] { arm('c', 500.0); });
  arm('b', 1002.0);
  wheel_->turn(1002.0);
  EXPECT_EQ(fired_, "ab");
  wheel_->turn(1002.0);
  EXPECT_EQ(fired_, "abc");
}

TEST_F(TimerWheelTest, rearmingItselfForNowFiresOnceATurn) {
  int rounds = 0;
  arm('a', 1001.0);
  timer('a').then_ = [&] {
    if (++rounds < 3) timer('a').timeMinIs(wheel_->now());
  };
  EXPECT_EQ(wheel_->turn(1001.0), 1u);
  EXPECT_EQ(wheel_->turn(1001.0), 1u);
  EXPECT_EQ(wheel_->turn(1001.0), 1u);
  EXPECT_EQ(wheel_->turn(1001.0), 0u);
}

TEST_F(TimerWheelTest, dueTimerRearmedByACallbackForAReachedTimeWaitsForTheNextTurn) {
  arm('a', 1001.0, [&] { arm('b', 1001.0); });
  arm('b', 1001.0);
  arm('c', 1001.0);
  wheel_->turn(1001.0);
  EXPECT_EQ(fired_, "ac");
  wheel_->turn(1001.0);
  EXPECT_EQ(fired_, "acb");
}

TEST_F(TimerWheelTest, dueTimerPutOffByACallbackDoesNotFire) {
  arm('a', 1001.0, [&] { arm('b', 1002.0); });
  arm('b', 1001.0);
  wheel_->turn(1001.5);
  EXPECT_EQ(fired_, "a");
  wheel_->advanceTo(1002.0);
  EXPECT_EQ(fired_, "ab");
}

TEST_F(TimerWheelTest, dueTimerDisarmedByACallbackDoesNotFire) {
  arm('a', 1001.0, [&] { disarm('b'); });
  arm('b', 1001.0);
  arm('c', 1001.0);
  wheel_->advanceTo(1002.0);
  EXPECT_EQ(fired_, "ac");
}

TEST_F(TimerWheelTest, dueTimerDestroyedByACallbackDoesNotFire) {
  arm('a', 1001.0, [&] { destroy('b'); });
  arm('b', 1001.0);
  arm('c', 1001.0);
  wheel_->advanceTo(1002.0);
  EXPECT_EQ(fired_, "ac");
}

TEST_F(TimerWheelTest, aCallbackMayDestroyItsOwnTimer) {
  arm('a', 1001.0, [&] { destroy('a'); });
  arm('b', 1001.0);
  wheel_->advanceTo(1002.0);
  EXPECT_EQ(fired_, "ab");
  EXPECT_EQ(wheel_->armed(), 0u);
}

TEST_F(TimerWheelTest, aCallbackMayArmItselfAndThenDestroyItself) {
  arm('a', 1001.0, [&] {
    arm('a', 1000.0);
    destroy('a');
  });
  arm('b', 1001.0);
  wheel_->advanceTo(1002.0);
  EXPECT_EQ(fired_, "ab");
  EXPECT_EQ(wheel_->nextDue(), never);
}

TEST_F(TimerWheelTest, aCallbackMayDestroyEveryTimer) {
  arm('a', 1001.0, [&] { marks_.clear(); });
  for (const char mark : std::string("bcdef")) arm(mark, 1001.0 + (mark - 'b') * 300.0);
  wheel_->turn(5000.0);
  EXPECT_EQ(fired_, "a");
  EXPECT_EQ(wheel_->armed(), 0u);
}

TEST_F(TimerWheelTest, periodicTimerKeepsItsPhaseInVirtualTime) {
  std::string at;
  arm('a', 1010.0);
  timer('a').then_ = [&] {
    at += std::to_string(static_cast<int>(wheel_->now())) + " ";
    timer('a').timeMinIs(wheel_->now() + 125.0);
  };
  wheel_->advanceTo(1500.0);
  EXPECT_EQ(at, "1010 1135 1260 1385 ");
  EXPECT_EQ(wheel_->now(), 1500.0);
}

TEST_F(TimerWheelTest, countsTimersThatHaveATime) {
  arm('a', 1010.0);
  arm('b', -1.0);
  arm('c', 1e15);
  EXPECT_EQ(wheel_->armed(), 3u);
  arm('a', 1020.0);
  EXPECT_EQ(wheel_->armed(), 3u);
  disarm('a');
  disarm('a');
  EXPECT_EQ(wheel_->armed(), 2u);
  destroy('a');
  destroy('c');
  EXPECT_EQ(wheel_->armed(), 1u);
  wheel_->turn(1000.0);
  EXPECT_EQ(wheel_->armed(), 0u);
}

TEST_F(TimerWheelTest, nextDueIsNeverWhileIdle) {
  EXPECT_EQ(wheel_->nextDue(), never);
  arm('a', 1010.0);
  EXPECT_LE(wheel_->nextDue(), 1010.0);
  EXPECT_GT(wheel_->nextDue(), 1000.0);
  disarm('a');
  EXPECT_EQ(wheel_->nextDue(), never);
}

TEST_F(TimerWheelTest, aHostThatSleepsUntilNextDueWakesOnceALevelAtMost) {
  arm('a', 1000.0 + 86400.0 * 30 + 0.001);
  EXPECT_LE(wakeUpsUntil(1e9), 5);
  EXPECT_EQ(fired_, "a");
}

// 2.5 s is a level higher than the ticks, and no multiple of one.
TEST_F(TimerWheelTest, aHostThatSleepsUntilNextWakeWakesOnceForATimer) {
  for (const Mox::Seconds time : {1000.0011, 1002.5011, 1000.0 + 86400.0 * 30 + 0.001}) {
    arm('a', time);
    EXPECT_EQ(wheel_->nextWake(), time);
    wheel_->turn(time);
  }
  EXPECT_EQ(fired_, "aaa");
}

TEST_F(TimerWheelTest, nextWakeIsThatOfTheEarliestTimerOfAllLevels) {
  arm('a', 1700.0);
  arm('b', 1003.0);
  arm('c', 1005.5);
  arm('d', 1001.0);
  timer('d').timeMinIs(1004.5);  // put off: it stays where it was
  EXPECT_EQ(wheel_->nextWake(), 1003.0);
  disarm('b');
  EXPECT_LE(wheel_->nextWake(), 1004.5);
  EXPECT_GE(wheel_->nextWake(), wheel_->nextDue());
}

TEST_F(TimerWheelTest, aDisarmedTimerWakesTheHostOnceAtMost) {
  arm('a', 1010.0);
  arm('b', 2000.0);
  disarm('a');
  EXPECT_LE(wakeUpsUntil(1011.0), 1);
  EXPECT_EQ(fired_, "");
}

TEST_F(TimerWheelTest, aTimerMovesToAnotherWheelWithItsTime) {
  const auto other = Mox::makePtr<TimerWheel>(0.0);
  arm('a', 1010.0);
  timer('a').wheelIs(other);
  EXPECT_EQ(timer('a').wheel(), Mox::Ptr<const TimerWheel>(other));
  EXPECT_EQ(wheel_->armed(), 0u);
  EXPECT_EQ(other->armed(), 1u);
  wheel_->advanceTo(2000.0);
  EXPECT_EQ(fired_, "");
  other->advanceTo(1010.0);
  EXPECT_EQ(fired_, "a");
}

TEST_F(TimerWheelTest, withoutAWheelATimerKeepsItsTimeUntilItGetsOne) {
  Mark loose(nullptr, fired_, 'a');
  loose.timeMinIs(1010.0);
  EXPECT_EQ(loose.timeMin(), 1010.0);
  loose.wheelIs(wheel_);
  wheel_->advanceTo(1010.0);
  EXPECT_EQ(fired_, "a");
  loose.timeMinIs(1020.0);
  loose.wheelIs(nullptr);
  wheel_->advanceTo(3000.0);
  EXPECT_EQ(fired_, "a");
}

struct Machine {
  explicit Machine(const Mox::Ptr<const TimerWheel>& wheel) : tick(wheel, *this) {}
  void handleTick() { ++ticks; }
  int ticks = 0;
  TimerReactor<Machine, &Machine::handleTick> tick;
};

TEST_F(TimerWheelTest, timerReactorCallsTheHandlerOfItsMachine) {
  Machine machine(wheel_);
  machine.tick.timeMinIs(1001.0);
  wheel_->advanceTo(1001.0);
  EXPECT_EQ(machine.ticks, 1);
}

}  // namespace
}  // namespace Obel
