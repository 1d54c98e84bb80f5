// Wakes the event loop when the next timer of the wheel is due.
//
//   WheelAlarm alarm(io, [this] { turn(); });
//   alarm.timeIs(wheel->nextWake());  // before it sleeps
#pragma once

#include <functional>

#include <MoxBase/Types.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

namespace Agent {

class WheelAlarm {
 public:
  WheelAlarm(boost::asio::io_context& io, std::function<void()> onDue);

  // The next wake-up, as a time of the activity clock; `never` for none. A time that was reached
  // wakes the loop at once, and may be set again: the wheel decides whether its timer is due.
  void timeIs(Mox::Seconds time);

 private:
  boost::asio::steady_timer timer_;
  const std::function<void()> onDue_;
  Mox::Seconds time_ = Mox::never;  // that timer_ waits for
};

}  // namespace Agent
