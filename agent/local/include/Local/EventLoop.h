// The event loop of a program that talks to a running agent: descriptors, timers and signals, in
// one thread.
//
// Its timer wheel follows the activity clock. An exception that a handler throws leaves the loop
// through the call that runs it.
//
//   EventLoop loop;
//   loop.stopAtSignals();
//   loop.run();
#pragma once

#include <chrono>
#include <memory>

#include <Local/IoContext.h>
#include <MoxBase/Ptr.h>
#include <Obel/TimerWheel.h>

namespace Agent {

class EventLoop {
 public:
  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  boost::asio::io_context& io();
  const Mox::Ptr<Obel::TimerWheel>& wheel() const { return wheel_; }

  // SIGINT and SIGTERM stop the loop from here on.
  void stopAtSignals();
  void stop() { isStopped_ = true; }
  bool isStopped() const { return isStopped_; }

  // Until it is stopped.
  void run();
  // Until `done`; false when the loop is stopped first, or `longest` has passed by the real clock.
  // Work that needs no waiting is done whatever the time.
  bool runUntil(const bool& done, std::chrono::nanoseconds longest);
  // The same without a limit.
  bool runUntil(const bool& done);
  // All that can be done without waiting.
  void poll();

 private:
  class Asio;

  using Clock = std::chrono::steady_clock;

  bool runUntil(const bool& done, Clock::time_point end);
  // Fires the timers that are due, then at most one handler; false when none was ready.
  bool step();
  void sleepUntil(Clock::time_point end);

  const std::unique_ptr<Asio> asio_;
  const Mox::Ptr<Obel::TimerWheel> wheel_;
  bool isStopped_ = false;
};

}  // namespace Agent
