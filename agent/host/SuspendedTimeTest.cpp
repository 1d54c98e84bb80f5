#include "SuspendedTime.h"

#include <gtest/gtest.h>

namespace Agent {
namespace {

Mox::Seconds clockTime = 0.0;

TEST(SuspendedTime, isWhatWasAddedSinceTheLastCall) {
  clockTime = 500.0;
  SuspendedTime suspended([] { return clockTime; });
  EXPECT_EQ(suspended.sinceLastCall(), 0.0) << "what came before is not of this process";
  clockTime += 3600.0;
  EXPECT_EQ(suspended.sinceLastCall(), 3600.0);
  EXPECT_EQ(suspended.sinceLastCall(), 0.0);
}

}  // namespace
}  // namespace Agent
