// How long the machine was suspended: time in which hosts and other routers went on, and that no
// timer of this process saw pass.
//
//   gap += suspended.sinceLastCall();
#pragma once

#include <ctime>

#include <MoxBase/Types.h>

namespace Agent {

class SuspendedTime {
 public:
  using Clock = Mox::Seconds (*)();

  // The clock counts all suspensions since the machine was started.
  explicit SuspendedTime(Clock clock = &sinceBoot) : clock_(clock), last_(clock()) {}

  // In seconds. What lies between two readings of the kernel's clocks can make it wrong by about a
  // millisecond, or by as long as this process had to wait for a processor.
  Mox::Seconds sinceLastCall() {
    const Mox::Seconds before = last_;
    last_ = clock_();
    return last_ - before;
  }

 private:
  static Mox::Seconds sinceBoot() { return timeOf(CLOCK_BOOTTIME) - timeOf(CLOCK_MONOTONIC); }
  static Mox::Seconds timeOf(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<Mox::Seconds>(time.tv_sec) + static_cast<Mox::Seconds>(time.tv_nsec) * 1e-9;
  }

  Clock clock_;
  Mox::Seconds last_;
};

}  // namespace Agent
