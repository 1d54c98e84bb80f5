#include <Mox/ActivityClock.h>

#include <ctime>

namespace Mox {

namespace {
bool isVirtual = false;
unsigned standing = 0;
Seconds currentTime = 0.0;
}  // namespace

Seconds now() {
  if (!isVirtual && standing == 0) {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    currentTime = static_cast<Seconds>(time.tv_sec) + static_cast<Seconds>(time.tv_nsec) * 1e-9;
  }
  return currentTime;
}

Seconds lastNow() { return currentTime; }

void virtualTimeIs(Seconds time) {
  isVirtual = true;
  currentTime = time;
}

void realTimeIs() { isVirtual = false; }

StandingClock::StandingClock() {
  now();
  ++standing;
}

StandingClock::~StandingClock() { --standing; }

}  // namespace Mox
