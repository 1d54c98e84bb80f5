// The event loop of a program that talks to a running agent: descriptors, timers and signals, in
// one thread.
//
// Its timer wheel follows the activity clock. An exception that a handler throws is passed on by
// the call that runs the loop.
//
//   EventLoop loop;
//   loop.stopAtSignals();
//   loop.run();
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

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

  // Called after each round of handlers, and before the loop waits; none for an empty function.
  void onRoundIs(std::function<void()> onRound) { onRound_ = std::move(onRound); }

  // Runs until it is stopped.
  void run();
  // Runs until `done` is true. Returns false when the loop is stopped first, or when `longest` has
  // passed on the real clock. Handlers that are ready run even if no time is left.
  bool runUntil(const bool& done, std::chrono::nanoseconds longest);
  // The same without a limit.
  bool runUntil(const bool& done);
  // Runs all handlers that are ready, without waiting.
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
  std::function<void()> onRound_;
  bool isStopped_ = false;
};

}  // namespace Agent
