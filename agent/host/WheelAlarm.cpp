#include "WheelAlarm.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include <Mox/ActivityClock.h>

namespace Agent {

using Mox::Seconds;

WheelAlarm::WheelAlarm(boost::asio::io_context& io, std::function<void()> onDue)
    : timer_(io), onDue_(std::move(onDue)) {}

void WheelAlarm::timeIs(Seconds time) {
  if (time == time_) return;
  time_ = time;
  if (time == Mox::never) {
    timer_.cancel();
    return;
  }
  // The loop's clock and the activity clock may begin at different times, but run alike.
  constexpr Seconds longest = 3600.0;
  const Seconds left = std::clamp(time - Mox::now(), 0.0, longest);
  timer_.expires_after(std::chrono::nanoseconds(std::llround(left * 1e9)));
  timer_.async_wait([this](const boost::system::error_code& failed) {
    if (failed) return;
    time_ = Mox::never;
    onDue_();
  });
}

}  // namespace Agent
