#include "LoopState.h"

#include <ctime>

namespace Agent {

namespace {

Mox::Seconds processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<Mox::Seconds>(time.tv_sec) + static_cast<Mox::Seconds>(time.tv_nsec) * 1e-9;
}

}  // namespace

void LoopState::ringsReadBegins() {
  longestGap_ = std::max(longestGap_, processorTime() - readEnd_);
}

void LoopState::ringsReadEnds() {
  ++batches_;
  readEnd_ = processorTime();
}

}  // namespace Agent
