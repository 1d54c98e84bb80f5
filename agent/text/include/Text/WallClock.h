// Converts times of the activity clock to times of the wall clock. A process has one of each clock.
//
//   UtcText(wallTime(Mox::now())).text()  // "2026-11-21T13:43:21.632198Z"
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include <MoxBase/Types.h>

namespace Agent {

// Seconds since 1970 (UTC) at that time of the activity clock, computed with the present difference
// between the machine's two clocks: it changes when the machine's wall clock is set.
Mox::Seconds wallTime(Mox::Seconds time);

// After this call the wall clock is ahead of the activity clock by that many seconds, as in the
// replay of a capture. This cannot be undone.
void wallClockDifferenceIs(std::optional<Mox::Seconds> difference);

// RFC 3339, UTC, to the microsecond. Empty before 1970 and after the year 9999.
class UtcText {
 public:
  explicit UtcText(Mox::Seconds sinceEpoch);
  std::string_view text() const { return {text_.data(), size_}; }

 private:
  std::array<char, 32> text_{};
  size_t size_ = 0;
};

// Local time of day, "10:15:03", of a time of the activity clock.
std::string timeOfDayText(Mox::Seconds time);

}  // namespace Agent
