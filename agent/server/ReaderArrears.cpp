#include "ReaderArrears.h"

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

// The timeout may be a day.
constexpr double stepsOfTimeout = 32.0;

// The most that the kernel counts for bytes of so many calls: at most twice their number, and the
// overhead of each call.
double mostQueued(Mox::U64 sends, Mox::U64 bytes) {
  constexpr double overhead = 1536.0;
  return 2.0 * static_cast<double>(bytes) + overhead * static_cast<double>(sends);
}

}  // namespace

bool ReaderArrears::isTooSlow(Mox::Seconds now, const Sample& sample) {
  const Mox::Seconds passed = now - std::exchange(lastTime_, now);
  const bool isNowBehind = isBehind(sample);
  const auto sent = static_cast<double>(sample.sent - last_.sent);
  const double taken = sent - (sample.queued - last_.queued);
  last_ = sample;
  if (std::exchange(wasBehind_, isNowBehind)) {
    add({.length = passed, .taken = taken});
  } else {
    giveBack(passed);
  }
  return isNowBehind && sum_.length >= timeout_ && sum_.taken < leastRate * sum_.length;
}

bool ReaderArrears::isBehind(const Sample& sample) const {
  const double recent = mostQueued(sample.sends - last_.sends, sample.sent - last_.sent);
  return sample.isBlocked || sample.queued > recent;
}

void ReaderArrears::add(const Step& step) {
  if (steps_.empty() || steps_.back().length + step.length > timeout_ / stepsOfTimeout) {
    steps_.push_back({});
  }
  for (Step* each : {&steps_.back(), &sum_}) {
    each->length += step.length;
    each->taken += step.taken;
  }
  while (sum_.length - steps_.front().length >= timeout_) giveBack(steps_.front().length);
}

// The oldest first.
void ReaderArrears::giveBack(Mox::Seconds time) {
  while (time > 0.0 && !steps_.empty()) {
    Step& oldest = steps_.front();
    const double share = std::min(time / oldest.length, 1.0);
    const Step gone{.length = share * oldest.length, .taken = share * oldest.taken};
    for (Step* each : {&oldest, &sum_}) {
      each->length -= gone.length;
      each->taken -= gone.taken;
    }
    time -= gone.length;
    if (share == 1.0) steps_.pop_front();
  }
  if (steps_.empty()) sum_ = {};
}

}  // namespace Agent
