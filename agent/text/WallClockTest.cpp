#include <Text/WallClock.h>

#include <ctime>

#include <gtest/gtest.h>

#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

TEST(UtcText, isRfc3339ToTheMicrosecond) {
  EXPECT_EQ(utcText(0.0), "1970-01-01T00:00:00.000000Z");
  EXPECT_EQ(utcText(951782400.0), "2000-02-29T00:00:00.000000Z");
  EXPECT_EQ(utcText(1795268601.632198), "2026-11-21T13:43:21.632198Z");
}

TEST(UtcText, carriesWhenTheMicrosecondsRoundUp) {
  EXPECT_EQ(utcText(59.9999999), "1970-01-01T00:01:00.000000Z");
}

TEST(UtcText, hasFourDigitsOfTheYearOrNothing) {
  EXPECT_EQ(utcText(253402300799.0), "9999-12-31T23:59:59.000000Z");
  EXPECT_EQ(utcText(253402300800.0), "");
  EXPECT_EQ(utcText(-1.0), "");
  EXPECT_EQ(utcText(Mox::never), "");
}

// The machine's clocks are read, so the moment lies between two readings of its wall clock.
TEST(WallTime, ofNowIsWhatTheMachinesClockShows) {
  const std::time_t before = std::time(nullptr);
  const Mox::Seconds at = wallTime(Mox::now());
  const std::time_t after = std::time(nullptr);
  EXPECT_GE(at, static_cast<double>(before) - 1.0);
  EXPECT_LE(at, static_cast<double>(after) + 1.0);
}

TEST(WallTime, ofAnEarlierTimeIsEarlierByAsMuch) {
  wallClockDifferenceIs(100.0);
  EXPECT_EQ(wallTime(7.5), 107.5);
  wallClockDifferenceIs({});
}

TEST(TimeOfDayText, isHoursMinutesSecondsOfTheLocalDay) {
  setenv("TZ", "UTC-1", 1);
  tzset();
  wallClockDifferenceIs(1795268601.0);
  EXPECT_EQ(timeOfDayText(2.9), "14:43:23");
  wallClockDifferenceIs({});
  unsetenv("TZ");
  tzset();
}

}  // namespace
}  // namespace Agent
