#include "LoopState.h"

#include <ctime>

#include <Mox/ActivityClock.h>

namespace Agent {

namespace {

Mox::Seconds processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<Mox::Seconds>(time.tv_sec) + static_cast<Mox::Seconds>(time.tv_nsec) * 1e-9;
}

}  // namespace

void LoopState::ringsReadBegins() { gapEnds(); }

void LoopState::ringsReadEnds() {
  ++batches_;
  hasSlept_ = false;
  gapBegin_ = Mox::now();
}

void LoopState::sleepBegins() {
  gapEnds();
  hasSlept_ = true;
  gapBegin_ = batches_ == 0 ? Mox::never : processorTime();
}

void LoopState::gapEnds() {
  const Mox::Seconds now = hasSlept_ ? processorTime() : Mox::now();
  longestGap_ = std::max(longestGap_, now - gapBegin_);
}

}  // namespace Agent
