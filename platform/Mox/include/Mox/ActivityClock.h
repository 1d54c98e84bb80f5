// The activity clock: the only time that the library reads.
//
// Real: seconds of CLOCK_MONOTONIC, so that an absolute time means the same in every process of the
// machine. Virtual: stands still until it is set, for replays and tests. One clock a process.
//
//   virtualTimeIs(1000.0);   // from here on now() is 1000.0
//   realTimeIs();            // back to the machine's clock
#pragma once

#include <MoxBase/Export.h>
#include <MoxBase/Types.h>

namespace Mox {

// The current time in seconds.
MOX_PUBLIC Seconds now();

// The result of the last now(): for records that need no exact time, at no cost.
MOX_PUBLIC Seconds lastNow();

MOX_PUBLIC void virtualTimeIs(Seconds time);
MOX_PUBLIC void realTimeIs();

// While one lives, the real clock stands still at the time of its construction: all effects of one
// packet have one time, and reading the clock costs nothing. For work that is short by nature.
class MOX_PUBLIC StandingClock {
 public:
  StandingClock();
  ~StandingClock();
  StandingClock(const StandingClock&) = delete;
  StandingClock& operator=(const StandingClock&) = delete;
};

}  // namespace Mox
