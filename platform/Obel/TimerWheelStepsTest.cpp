// Turns with a limit: what a million timers of one time do to a host that has other work.
#include <Obel/TimerWheel.h>

#include <cmath>
#include <deque>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace Obel {
namespace {

using Mox::Seconds;

constexpr size_t limit = 4;

class TimerWheelStepsTest : public testing::Test {
 protected:
  struct Timer final : TimerWheel::Reactor {
    Timer(TimerWheelStepsTest& test, size_t id) : Reactor(test.wheel_), test_(test), id_(id) {}
    void onTime() override { test_.fired_.push_back(id_); }
    TimerWheelStepsTest& test_;
    const size_t id_;
  };

  void arm(Seconds at) {
    timers_.push_back(std::make_unique<Timer>(*this, timers_.size()));
    timers_.back()->timeMinIs(at);
    due_.push_back(at);
  }
  // Turns until the wheel says that nothing is due any more; how often.
  size_t turnsAt(Seconds now) {
    size_t turns = 0;
    for (; wheel_->nextDue() <= now && turns < 1'000'000; ++turns) {
      const size_t before = fired_.size();
      EXPECT_LE(wheel_->turn(now, limit), limit);
      for (size_t at = before; at < fired_.size(); ++at) {
        EXPECT_LE(due_[fired_[at]], now);
        if (at > before) {
          EXPECT_LE(due_[fired_[at - 1]], due_[fired_[at]]);
        }
      }
    }
    return turns;
  }

  const Mox::Ptr<TimerWheel> wheel_ = Mox::makePtr<TimerWheel>(1000.0);
  std::deque<std::unique_ptr<Timer>> timers_;
  std::vector<Seconds> due_;  // by timer
  std::vector<size_t> fired_;
};

TEST_F(TimerWheelStepsTest, timersOfOneTimeFireInTheOrderOfArming) {
  for (int n = 0; n < 20'000; ++n) arm(1260.0);
  EXPECT_GE(turnsAt(1260.0), 20'000 / limit);
  ASSERT_EQ(fired_.size(), timers_.size());
  for (size_t n = 0; n < fired_.size(); ++n) ASSERT_EQ(fired_[n], n);
}

// They lie in one coarse slot, and no turn moves all of them.
TEST_F(TimerWheelStepsTest, timersThatAreNotDueYetAreMovedInManyTurns) {
  for (int n = 0; n < 20'000; ++n) arm(1260.5 + n * 1e-5);
  const Seconds slotStart = 1260.0;
  EXPECT_GE(turnsAt(slotStart), 10u);
  EXPECT_TRUE(fired_.empty());
  turnsAt(1261.0);
  EXPECT_EQ(fired_.size(), timers_.size());
}

TEST_F(TimerWheelStepsTest, timersThatAreArmedInTheMiddleOfAMoveFireWhenTheyAreDue) {
  for (int n = 0; n < 5'000; ++n) arm(1260.25);
  wheel_->turn(1260.25, limit);
  arm(1260.25);
  arm(1260.2);
  arm(1261.0);
  arm(1260.0 + 512.0);  // a round of the slot ahead
  turnsAt(1260.5);
  EXPECT_EQ(fired_.size(), timers_.size() - 2);
  turnsAt(1261.0);
  EXPECT_EQ(fired_.size(), timers_.size() - 1);
  turnsAt(1772.0);
  EXPECT_EQ(fired_.size(), timers_.size());
}

TEST_F(TimerWheelStepsTest, turnWithoutALimitFiresAllInOrderInTheMiddleOfAMove) {
  for (int n = 0; n < 5'000; ++n) arm(1260.0 + 0.25 * ((n * 7919) % 5'000) / 5'000);
  wheel_->turn(1260.25, limit);
  const size_t before = fired_.size();
  wheel_->turn(1260.25);
  EXPECT_EQ(fired_.size(), timers_.size());
  for (size_t at = before + 1; at < fired_.size(); ++at) {
    ASSERT_LE(due_[fired_[at - 1]], due_[fired_[at]]);
  }
}

// Random times, with timers that are put off, disarmed and destroyed in the middle of moves.
TEST_F(TimerWheelStepsTest, eachTimerFiresOnceAndNeverEarly) {
  for (unsigned seed = 1; seed <= 20 && !HasFailure(); ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    Seconds now = wheel_->now();
    const Seconds begin = now;
    fired_.clear();
    timers_.clear();
    due_.clear();
    const auto anyTime = [&] {
      const Seconds spread = random() % 3 == 0 ? 0.01 : random() % 2 == 0 ? 2.0 : 600.0;
      return begin + std::floor(static_cast<Seconds>(random() % 1000) * spread) / 100;
    };
    for (int n = 0; n < 3'000; ++n) arm(anyTime());
    size_t gone = 0;
    for (int step = 0; step < 2'000; ++step) {
      if (random() % 3 == 0) now += 0.005 * static_cast<Seconds>(random() % 100);
      wheel_->turn(now, limit);
      const size_t id = random() % timers_.size();
      if (timers_[id] == nullptr || timers_[id]->timeMin() == Mox::never) continue;
      if (random() % 3 == 0) {
        timers_[id].reset();
        ++gone;
      } else {
        due_[id] = std::max(due_[id], anyTime());
        timers_[id]->timeMinIs(due_[id]);
      }
    }
    turnsAt(begin + 10'000.0);
    EXPECT_EQ(fired_.size() + gone, timers_.size());
    EXPECT_EQ(wheel_->armed(), 0u);
  }
}

}  // namespace
}  // namespace Obel
