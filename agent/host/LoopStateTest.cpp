#include "LoopState.h"

#include <gtest/gtest.h>

namespace Agent {
namespace {

// Until the clock of the processor time has moved.
void work(const LoopState& state) {
  const auto probe = Mox::makePtr<LoopState>();
  probe->ringsReadEnds();
  while (probe->longestGap() <= state.longestGap()) probe->ringsReadBegins();
}

TEST(LoopState, gapIsTheLongestBetweenTwoReadsOfTheRings) {
  const auto state = Mox::makePtr<LoopState>();
  work(*state);
  state->ringsReadBegins();
  EXPECT_EQ(state->longestGap(), 0.0);
  state->ringsReadEnds();
  work(*state);
  state->ringsReadBegins();
  const Mox::Seconds first = state->longestGap();
  EXPECT_GT(first, 0.0);
  state->ringsReadEnds();
  work(*state);
  state->ringsReadBegins();
  EXPECT_GT(state->longestGap(), first);
}

TEST(LoopState, batchesAreCounted) {
  const auto state = Mox::makePtr<LoopState>();
  for (int batch = 0; batch < 3; ++batch) {
    state->ringsReadBegins();
    state->ringsReadEnds();
  }
  EXPECT_EQ(state->batches(), 3u);
}

}  // namespace
}  // namespace Agent
