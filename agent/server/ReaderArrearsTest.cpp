#include "ReaderArrears.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace Agent {
namespace {

using Mox::Seconds;
using Mox::U64;

// A socket with room for so plenty, whose reader takes `perSecond` bytes at each `period`, of a
// server that always has more to send, or a limited number of bytes a second.
struct Reader {
  std::string name;
  U64 perPeriod;
  int period;
  U64 produced;    // bytes a second
  Seconds endsAt;  // 0: it stays
};

constexpr Seconds timeout = 30.0;
constexpr U64 room = 200000;
constexpr U64 plenty = 10'000'000;

Seconds endOf(const Reader& reader) {
  ReaderArrears arrears(timeout);
  ReaderArrears::Sample sample;
  U64 waiting = 0;  // in the server
  for (int second = 1; second <= 300; ++second) {
    if (second % reader.period == 0) {
      sample.queued -= static_cast<int>(std::min(reader.perPeriod, U64(sample.queued)));
    }
    waiting = std::min(waiting + reader.produced, plenty);
    const U64 sent = std::min(waiting, room - static_cast<U64>(sample.queued));
    waiting -= sent;
    sample.sent += sent;
    sample.sends += sent != 0 ? 1 : 0;
    sample.queued += static_cast<int>(sent);
    sample.isBlocked = waiting != 0;
    if (arrears.isTooSlow(second, sample)) return second;
  }
  return 0.0;
}

class ReaderArrearsTest : public testing::TestWithParam<Reader> {};

TEST_P(ReaderArrearsTest, endsWhenItShould) {
  EXPECT_DOUBLE_EQ(endOf(GetParam()), GetParam().endsAt);
}

// With 10 MB a second the reader is in arrears from the first second on. One that gets 20,000 bytes
// a second and takes none is from the third on: it could have taken those of the last second.
INSTANTIATE_TEST_SUITE_P(All, ReaderArrearsTest,
                         testing::Values(Reader{"takesNothing", 0, 1, plenty, 31},
                                         Reader{"takesOneByte", 1, 1, plenty, 31},
                                         Reader{"takesHalf", 32768, 1, plenty, 31},
                                         Reader{"takesAlmostEnough", 65535, 1, plenty, 31},
                                         Reader{"takesEnough", 65536, 1, plenty, 0},
                                         Reader{"takesPlenty", room, 1, plenty, 0},
                                         Reader{"takesAFullSocketNowAndThen", room, 10, plenty, 31},
                                         Reader{"takesAFullSocketOftenEnough", room, 3, plenty, 0},
                                         Reader{"takesAllOfLittle", room, 1, 10, 0},
                                         Reader{"takesAllOfMore", room, 1, 60000, 0},
                                         Reader{"takesNothingOfLittle", 0, 1, 20000, 33},
                                         Reader{"getsNothing", 0, 1, 0, 0}),
                         [](const auto& tested) { return tested.param.name; });

// The speed of earlier does not count.
TEST(ReaderArrears, quickReaderThatStopsEndsAfterTheTimeout) {
  ReaderArrears arrears(timeout);
  ReaderArrears::Sample sample{.sent = 0, .sends = 0, .queued = 200000, .isBlocked = true};
  Seconds now = 0.0;
  for (; now < 100.0; now += 1.0) {
    sample.sent += 5'000'000;
    ++sample.sends;
    ASSERT_FALSE(arrears.isTooSlow(now, sample));
  }
  const Seconds stopped = now;
  while (!arrears.isTooSlow(now, sample)) now += 1.0;
  EXPECT_GE(now - stopped, timeout - 1.0);
  EXPECT_LE(now - stopped, timeout + 1.0);
}

// Behind for so many polls, a second apart, then as many others with nothing left to take.
struct Rhythm {
  std::string name;
  int behind;
  int caughtUp;
  Seconds endsAt;  // 0: it stays
};

class ReaderRhythmTest : public testing::TestWithParam<Rhythm> {};

TEST_P(ReaderRhythmTest, endsWhenItIsBehindForMoreThanHalfOfTheTime) {
  ReaderArrears arrears(timeout);
  const ReaderArrears::Sample waits{.sent = 1000, .sends = 1, .queued = 1000, .isBlocked = true};
  const ReaderArrears::Sample taken{.sent = 1000, .sends = 1, .queued = 0, .isBlocked = false};
  const auto& [name, behind, caughtUp, endsAt] = GetParam();
  Seconds ended = 0.0;
  for (int second = 0; second < 3600 && ended == 0.0; ++second) {
    const bool isBehind = second % (behind + caughtUp) < behind;
    if (arrears.isTooSlow(second, isBehind ? waits : taken)) ended = second;
  }
  EXPECT_DOUBLE_EQ(ended, endsAt);
}

// One that catches up for a moment every 28 s has that moment more, and no second timeout.
INSTANTIATE_TEST_SUITE_P(All, ReaderRhythmTest,
                         testing::Values(Rhythm{"drainsEvery28s", 27, 1, 32},
                                         Rhythm{"drainsEvery10s", 9, 1, 36},
                                         Rhythm{"isBehindTwoThirdsOfTheTime", 20, 10, 70},
                                         Rhythm{"isBehindHalfOfTheTime", 15, 15, 0},
                                         Rhythm{"isBehindForAMomentEachTime", 1, 2, 0}),
                         [](const auto& tested) { return tested.param.name; });

TEST(ReaderArrears, readerThatWasNotBehindForAsLongHasTheWholeTimeoutAgain) {
  ReaderArrears arrears(timeout);
  const ReaderArrears::Sample waits{.sent = 1000, .sends = 1, .queued = 1000, .isBlocked = true};
  const ReaderArrears::Sample taken{.sent = 1000, .sends = 1, .queued = 0, .isBlocked = false};
  for (Seconds now = 0.0; now < 29.0; now += 1.0) ASSERT_FALSE(arrears.isTooSlow(now, waits));
  for (Seconds now = 29.0; now < 60.0; now += 1.0) ASSERT_FALSE(arrears.isTooSlow(now, taken));
  for (Seconds now = 60.0; now < 90.0; now += 1.0) EXPECT_FALSE(arrears.isTooSlow(now, waits));
  EXPECT_TRUE(arrears.isTooSlow(90.0, waits));
}

TEST(ReaderArrears, shortestAndLongestTimeoutAreKept) {
  const ReaderArrears::Sample waits{.sent = 0, .sends = 0, .queued = 1, .isBlocked = true};
  for (const Seconds longest : {1.0, 86400.0}) {
    ReaderArrears arrears(longest);
    Seconds now = 0.0;
    while (!arrears.isTooSlow(now, waits)) now += 1.0;
    EXPECT_DOUBLE_EQ(now, longest);
  }
}

}  // namespace
}  // namespace Agent
