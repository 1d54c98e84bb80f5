#include "ReaderArrears.h"

namespace Agent {

namespace {

// Progress is kept in so many steps of the timeout, which may be a day.
constexpr double steps = 32.0;

// The most that the kernel counts for bytes of so many calls: at most twice their number, and the
// overhead of each call.
double mostQueued(Mox::U64 sends, Mox::U64 bytes) {
  constexpr double overhead = 1536.0;
  return 2.0 * static_cast<double>(bytes) + overhead * static_cast<double>(sends);
}

}  // namespace

bool ReaderArrears::isTooSlow(Mox::Seconds now, const Sample& sample) {
  const double recent = mostQueued(sample.sends - last_.sends, sample.sent - last_.sent);
  last_ = sample;
  if (!sample.isBlocked && sample.queued <= recent) {
    progress_.clear();
    return false;
  }
  const Mox::S64 taken = static_cast<Mox::S64>(sample.sent) - sample.queued;
  if (progress_.empty() || now >= progress_.back().time + timeout_ / steps) {
    progress_.push_back({.time = now, .taken = taken});
  }
  while (progress_.size() > 1 && progress_[1].time + timeout_ <= now) progress_.pop_front();
  const Mox::Seconds passed = now - progress_.front().time;
  const auto took = static_cast<double>(taken - progress_.front().taken);
  return passed >= timeout_ && took < leastRate * passed;
}

}  // namespace Agent
