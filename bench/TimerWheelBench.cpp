#include <Obel/TimerWheel.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

#include "Budget.h"

namespace Bench {
namespace {

using Mox::Seconds;
using Obel::TimerWheel;

struct Timer final : TimerWheel::Reactor {
  Timer() : Reactor(nullptr) {}
  void onTime() override { ++*fired_; }
  size_t* fired_ = nullptr;
};

// Many timers with times spread over 260 s, visited in an order that is independent of their places
// in memory and of their times.
class Crowd {
 public:
  explicit Crowd(size_t count) : timers_(count), visit_(count) {
    for (Timer& timer : timers_) {
      timer.wheelIs(wheel_);
      timer.fired_ = &fired_;
    }
    std::iota(visit_.begin(), visit_.end(), 0U);
    std::shuffle(visit_.begin(), visit_.end(), random_);
    std::uniform_real_distribution<Seconds> delay(1.0, 261.0);
    for (size_t i = 0; i < count; ++i) delays_.push_back(delay(random_));
  }

  size_t size() const { return visit_.size(); }
  TimerWheel& wheel() { return *wheel_; }
  size_t fired() const { return fired_; }

  // In the order of visiting, each to its delay from now plus `later`.
  void armAll(Seconds later = 0.0) {
    const Seconds from = wheel_->now() + later;
    for (size_t i = 0; i < visit_.size(); ++i) timers_[visit_[i]].timeMinIs(from + delays_[i]);
  }

  // Leaves every timer idle and in no slot.
  void disarmAll() {
    for (Timer& timer : timers_) timer.timeMinIs(Mox::never);
    wheel_->turn(wheel_->now() + 1e5);
  }

 private:
  std::mt19937 random_{1};
  const Mox::Ptr<TimerWheel> wheel_ = Mox::makePtr<TimerWheel>(1000.0);
  size_t fired_ = 0;
  std::vector<Timer> timers_;
  std::vector<uint32_t> visit_;
  std::vector<Seconds> delays_;
};

void arm(benchmark::State& state) {
  Crowd crowd(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    crowd.disarmAll();
    timed(state, [&] { crowd.armAll(); });
  }
  if (crowd.wheel().armed() != crowd.size()) state.SkipWithError("not all were armed");
  budget(state, 30.0, crowd.size());
}
BENCHMARK(arm)->Name("TimerWheel/arm")->Apply(sizes<1000, 1000000>)->UseManualTime();

// The effect of a report on the timer of a known member.
void rearmLater(benchmark::State& state) {
  Crowd crowd(static_cast<size_t>(state.range(0)));
  crowd.armAll();
  Seconds later = 0.0;
  for (auto _ : state) {
    later += 0.5;
    timed(state, [&] { crowd.armAll(later); });
  }
  if (crowd.fired() != 0) state.SkipWithError("a timer fired");
  budget(state, 8.0, crowd.size());
}
BENCHMARK(rearmLater)->Name("TimerWheel/rearmLater")->Apply(sizes<1000, 1000000>)->UseManualTime();

// From arming to the last expiry, as a host that sleeps until nextDue.
void expire(benchmark::State& state) {
  Crowd crowd(static_cast<size_t>(state.range(0)));
  size_t batches = 0;
  for (auto _ : state) {
    crowd.armAll();
    timed(state, [&] { crowd.wheel().advanceTo(Mox::never); });
    ++batches;
  }
  if (crowd.fired() != batches * crowd.size()) state.SkipWithError("not all fired");
  budget(state, 60.0, crowd.size());
}
BENCHMARK(expire)->Name("TimerWheel/expire")->Apply(sizes<1000, 1000000>)->UseManualTime();

void nextDue(benchmark::State& state) {
  Crowd crowd(static_cast<size_t>(state.range(0)));
  crowd.armAll();
  for (auto _ : state) {
    benchmark::DoNotOptimize(crowd.wheel().nextDue());
    benchmark::ClobberMemory();
  }
  budget(state, 30.0);
}
BENCHMARK(nextDue)->Name("TimerWheel/nextDue")->Apply(sizes<1000, 1000000>);

}  // namespace
}  // namespace Bench
