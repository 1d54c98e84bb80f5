#include "Duration.h"

#include <gtest/gtest.h>

namespace Agent {
namespace {

using Mox::never;

TEST(DurationTest, hasTwoUnitsAtMostAndADashForNone) {
  EXPECT_EQ(durationText(0.0), "0.0s");
  EXPECT_EQ(durationText(-3.0), "0.0s");
  EXPECT_EQ(durationText(3.24), "3.2s");
  EXPECT_EQ(durationText(9.94), "9.9s");
  EXPECT_EQ(durationText(9.96), "10s");
  EXPECT_EQ(durationText(59.6), "1m00s");
  EXPECT_EQ(durationText(250.0), "4m10s");
  EXPECT_EQ(durationText(3599.6), "1h00m");
  EXPECT_EQ(durationText(3725.0), "1h02m");
  EXPECT_EQ(durationText(86400.0 * 3 + 4 * 3600.0), "3d04h");
  EXPECT_EQ(durationText(never), "-");
  EXPECT_EQ(durationText(-never), "-");
}

}  // namespace
}  // namespace Agent
