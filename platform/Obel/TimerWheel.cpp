#include <Obel/TimerWheel.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <MoxBase/Fatal.h>

namespace Obel {

using Mox::Seconds;
using Mox::U64;

namespace {
constexpr Seconds secondsPerTick = 1.0 / 128;
}

TimerWheel::TimerWheel(Seconds start) : now_(start), cursor_(tickOf(start)) {
  Mox::fatalUnless(std::isfinite(start), "Obel/TimerWheel.h", "start is finite");
  clear(due_);
  clear(soon_);
}

TimerWheel::~TimerWheel() = default;

Seconds TimerWheel::nextDue() const {
  if (armed_ == 0) return Mox::never;  // slots may still hold disarmed timers
  const Seconds due = nearDue();
  if (due != Mox::never && !(isMoving() && collected_ < mostCollected)) return due;
  return std::min(due, static_cast<Seconds>(firstStart_) * secondsPerTick);
}

Seconds TimerWheel::nearDue() const {
  const Seconds due = isEmpty(soon_) ? Mox::never : soonMin_;
  if (isEmpty(due_)) return due;
  return std::min(due, static_cast<const Reactor*>(due_.next)->timeMin_);
}

// A slot holds no timer of a time before its start. Those of the first slot of a level may have
// been put off, so the start of the second one counts as well.
Seconds TimerWheel::nextWake() const {
  const Seconds bound = nextDue();
  if (bound == Mox::never || isMoving()) return bound;
  Seconds wake = nearDue();
  for (size_t level = 0; level < levels; ++level) {
    const U64 own = static_cast<U64>(cursor_ >> (level * levelBits));
    const int first = firstOccupied(level, (own + 1) % slotsPerLevel);
    if (first < 0) continue;
    const size_t slots = level * slotsPerLevel;
    const auto place = static_cast<size_t>(first);
    wake = std::min(wake, slotWake(slots + place));
    const auto second = static_cast<size_t>(firstOccupied(level, (place + 1) % slotsPerLevel));
    if (second == place) continue;
    wake = std::min(wake, static_cast<Seconds>(slotStart(slots + second)) * secondsPerTick);
  }
  return std::max(wake, bound);
}

Seconds TimerWheel::slotWake(size_t slot) const {
  if (slotSize_[slot] > mostSearched) return static_cast<Seconds>(slotStart(slot)) * secondsPerTick;
  Seconds wake = Mox::never;
  for (const Link& chain : slot_[slot]) {
    for (const Link* at = chain.next; at != &chain; at = at->next) {
      wake = std::min(wake, static_cast<const Reactor*>(at)->timeMin_);
    }
  }
  return wake;
}

// The timers in due_ fire first, so that it stays short: its order costs a search.
bool TimerWheel::mayMove() const {
  if (isEmpty(due_)) return true;
  return static_cast<const Reactor*>(due_.next)->timeMin_ > now_ && collected_ < mostCollected;
}

size_t TimerWheel::turn(Seconds now, size_t most) {
  Mox::fatalUnless(!turning_, "Obel/TimerWheel.h", "a callback does not turn the wheel");
  const Mox::Ptr<const TimerWheel> keep(this);  // a callback may drop the last other pointer
  struct Turning {
    explicit Turning(bool& flag) : flag_(flag) { flag_ = true; }
    ~Turning() { flag_ = false; }
    bool& flag_;
  } const turning(turning_);

  if (std::isfinite(now)) now_ = std::max(now_, now);
  if (!isEmpty(soon_)) {
    if (!soonInOrder_) orderSoon();
    merge(due_, soon_);
  }
  const Tick tick = tickOf(now_);
  if (most == noLimit) {
    if (tick > cursor_ || isMoving()) moveCursor(tick, noLimit);
  } else if ((tick > cursor_ || isMoving()) && mayMove()) {
    moveCursor(tick, std::max<size_t>(most, 1) * movesOfTimer);
  }

  size_t fired = 0;
  while (fired < most && !isEmpty(due_)) {
    Reactor& first = *static_cast<Reactor*>(due_.next);
    if (first.timeMin_ > now_) break;
    unfile(first);
    first.whereIs(placeNone, first.order());
    first.timeMin_ = Mox::never;
    --armed_;
    ++fired;
    first.onTime();  // may destroy it
  }
  return fired;
}

void TimerWheel::advanceTo(Seconds until) {
  const Mox::Ptr<const TimerWheel> keep(this);
  while (armed_ > 0) {
    const Seconds due = nextDue();
    if (!(due <= until)) break;
    turn(std::max(now_, due));
  }
  if (until > now_) turn(until);
}

TimerWheel::Reactor::Reactor(Mox::Ptr<const TimerWheel> wheel)
    : Link{nullptr, nullptr}, wheel_(std::move(wheel)) {}

TimerWheel::Reactor::~Reactor() {
  if (wheel_) wheel_->remove(*this);
}

void TimerWheel::Reactor::rearm(Seconds time) {
  if (std::isnan(time)) time = Mox::never;
  if (wheel_) {
    wheel_->rearm(*this, time);
  } else {
    timeMin_ = time;
  }
}

void TimerWheel::Reactor::wheelIs(Mox::Ptr<const TimerWheel> wheel) {
  if (wheel == wheel_) return;
  if (wheel_) wheel_->remove(*this);
  wheel_ = std::move(wheel);
  const Seconds time = std::exchange(timeMin_, Mox::never);  // the new wheel does not count it yet
  if (time != Mox::never) rearm(time);
}

}  // namespace Obel
