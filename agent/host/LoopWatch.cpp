#include "LoopWatch.h"

#include <algorithm>
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

void LoopWatch::ringsReadBegins() { gapEnds(); }

void LoopWatch::ringsReadEnds() {
  ++batches_;
  hasSlept_ = false;
  gapBegin_ = Mox::now();
}

void LoopWatch::sleepBegins() {
  gapEnds();
  hasSlept_ = true;
  gapBegin_ = batches_ == 0 ? Mox::never : processorTime();
}

void LoopWatch::gapEnds() {
  if (gapBegin_ == Mox::never) return;
  const Mox::Seconds now = hasSlept_ ? processorTime() : Mox::now();
  const Mox::Seconds gap = std::max(now - gapBegin_, 0.0);
  longestGap_ = std::max(longestGap_, gap);
  gaps_.add(gap);
}

void LoopWatch::publishIfDue() {
  if (Mox::now() >= published_ + publishInterval) publish();
}

void LoopWatch::publish() {
  published_ = Mox::now();
  state_->batchesIs(batches_);
  state_->longestGapIs(longestGap_);
  state_->gapsIs(gaps_);
  state_->queryDelaysIs(queryDelays_);
}

}  // namespace Agent
