#include <Text/WallClock.h>

#include <ctime>

#include <gtest/gtest.h>

#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

TEST(UtcText, isRfc3339ToTheMicrosecond) {
  EXPECT_EQ(UtcText(0.0).text(), "1970-01-01T00:00:00.000000Z");
  EXPECT_EQ(UtcText(951782400.0).text(), "2000-02-29T00:00:00.000000Z");
  EXPECT_EQ(UtcText(1795268601.632198).text(), "2026-11-21T13:43:21.632198Z");
}

TEST(UtcText, carriesWhenTheMicrosecondsRoundUp) {
  EXPECT_EQ(UtcText(59.9999999).text(), "1970-01-01T00:01:00.000000Z");
}

TEST(UtcText, hasFourDigitsOfTheYearOrNothing) {
  EXPECT_EQ(UtcText(253402300799.0).text(), "9999-12-31T23:59:59.000000Z");
  EXPECT_EQ(UtcText(253402300800.0).text(), "");
  EXPECT_EQ(UtcText(-1.0).text(), "");
  EXPECT_EQ(UtcText(Mox::never).text(), "");
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
