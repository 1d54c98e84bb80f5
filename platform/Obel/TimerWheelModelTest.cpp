// Random arming, re-arming, disarming, destroying and turning, from outside and from callbacks,
// against a std::map of (time, order of arming).
#include <Obel/TimerWheel.h>

#include <cmath>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace Obel {
namespace {

using Mox::never;
using Mox::Seconds;
using Mox::U64;

class Sequence {
 public:
  explicit Sequence(unsigned seed) : random_(seed) {
    timers_.resize(8 + below(56));
    for (size_t id = 0; id < timers_.size(); ++id) create(id);
  }

  void run() {
    const size_t steps = 1000 + below(9000);
    while (actions_ < steps && !testing::Test::HasFailure()) {
      if (below(4) == 0) {
        move();
      } else {
        act();
      }
      check();
    }
  }

 private:
  struct Timer final : TimerWheel::Reactor {
    Timer(Sequence& sequence, size_t id) : Reactor(sequence.wheel_), sequence_(sequence), id_(id) {}
    void onTime() override { sequence_.fired(id_); }
    Sequence& sequence_;
    const size_t id_;
  };
  using Model = std::map<std::pair<Seconds, U64>, size_t>;

  size_t below(size_t bound) { return static_cast<size_t>(random_() % bound); }

  void create(size_t id) {
    timers_[id] = std::make_unique<Timer>(*this, id);
    key_[id] = std::nullopt;
  }

  void forget(size_t id) {
    if (key_[id]) model_.erase(*key_[id]);
    key_[id] = std::nullopt;
  }

  // Coarse, so that equal times are common; from the past to beyond the last level.
  Seconds anyTime() {
    const Seconds now = wheel_->now();
    const auto n = static_cast<Seconds>(below(6));
    switch (below(12)) {
      case 0: return now;
      case 1: return now - n;
      case 2: return -never;
      case 3: return now + n * 0.001;
      case 4: return now + n / 128;
      case 5:
      case 6: return now + n * 0.5;
      case 7: return std::floor(now) + n * 2.0;
      case 8: return std::floor(now / 260) * 260 + n * 260.0;
      case 9: return now + n * 131072.0;
      case 10: return now + n * 1e8;
      default: return std::floor(now) + 1.0;
    }
  }

  void act() {
    ++actions_;
    const size_t id = below(timers_.size());
    const size_t kind = below(10);
    if (kind == 0) {
      forget(id);
      create(id);
    } else if (kind == 1) {
      forget(id);
      timers_[id]->timeMinIs(never);
    } else {
      forget(id);
      const Seconds time =
          kind == 2 && timers_[id]->timeMin() != never ? timers_[id]->timeMin() : anyTime();
      key_[id] = {time, nextOrder_++};
      model_[*key_[id]] = id;
      timers_[id]->timeMinIs(time);
    }
  }

  // The one that must fire next in a turn that began with the order `before`, if any.
  std::optional<size_t> expected() const {
    for (const auto& [key, id] : model_) {
      if (key.first > wheel_->now()) break;
      if (key.second < before_) return id;
    }
    return std::nullopt;
  }

  void fired(size_t id) {
    ++actions_;
    EXPECT_EQ(expected(), std::optional(id)) << "at " << wheel_->now();
    EXPECT_EQ(timers_[id]->timeMin(), never);
    forget(id);
    for (size_t n = below(3); n > 0; --n) act();
  }

  void turn(Seconds time) {
    before_ = nextOrder_;
    wheel_->turn(time);
    EXPECT_EQ(expected(), std::nullopt) << "left unfired at " << wheel_->now();
  }

  void move() {
    static constexpr Seconds steps[] = {0.0, 0.001, 1.0 / 128, 0.3, 2.0, 260.0, 70000.0, 3e7, 5e8};
    const Seconds until = wheel_->now() + steps[below(std::size(steps))];
    if (below(2) == 0) {
      turn(until);
      return;
    }
    // As a host that sleeps, with a bound: actions go on for ever by themselves.
    const bool searches = below(2) == 0;
    const auto next = [&] { return searches ? wheel_->nextWake() : wheel_->nextDue(); };
    int idle = 0;
    for (int turns = 0; turns < 200 && next() <= until; ++turns) {
      const size_t had = model_.size();
      turn(next());
      idle = model_.size() == had ? idle + 1 : 0;
      EXPECT_LT(idle, 150) << "it comes again and again with nothing to fire";
    }
  }

  void check() const {
    EXPECT_EQ(wheel_->armed(), model_.size());
    if (model_.empty()) {
      EXPECT_EQ(wheel_->nextDue(), never);
      EXPECT_EQ(wheel_->nextWake(), never);
    } else {
      EXPECT_LE(wheel_->nextDue(), wheel_->nextWake());
      EXPECT_LE(wheel_->nextWake(), model_.begin()->first.first);
    }
  }

  std::mt19937 random_;
  const Mox::Ptr<TimerWheel> wheel_ = Mox::makePtr<TimerWheel>(1000.0);
  std::vector<std::unique_ptr<Timer>> timers_;
  std::map<size_t, std::optional<std::pair<Seconds, U64>>> key_;
  Model model_;
  U64 nextOrder_ = 0;
  U64 before_ = 0;
  size_t actions_ = 0;
};

TEST(TimerWheelModelTest, doesWhatAMapOfTimesAndOrdersDoes) {
  for (unsigned seed = 1; seed <= 240; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Sequence(seed).run();
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace Obel
