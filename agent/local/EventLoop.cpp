#include <Local/EventLoop.h>

#include <algorithm>
#include <csignal>

#include <Mox/ActivityClock.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

namespace Agent {

namespace {

// A timer may be infinitely far away.
std::chrono::nanoseconds sleepOf(Mox::Seconds seconds) {
  constexpr Mox::Seconds longestSleep = 3600.0;
  const std::chrono::duration<double> bounded(std::clamp(seconds, 0.0, longestSleep));
  return std::chrono::ceil<std::chrono::nanoseconds>(bounded);
}

}  // namespace

// With work of its own the context waits while nothing else is pending.
class EventLoop::Asio {
 public:
  boost::asio::io_context io{1};
  boost::asio::signal_set signals{io};

 private:
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{io.get_executor()};
};

EventLoop::EventLoop()
    : asio_(std::make_unique<Asio>()), wheel_(Mox::makePtr<Obel::TimerWheel>(Mox::now())) {}

EventLoop::~EventLoop() = default;

boost::asio::io_context& EventLoop::io() { return asio_->io; }

void EventLoop::stopAtSignals() {
  for (const int number : {SIGINT, SIGTERM}) asio_->signals.add(number);
  asio_->signals.async_wait([this](const boost::system::error_code& failed, int) {
    if (!failed) stop();
  });
}

void EventLoop::run() {
  const bool isDone = false;
  runUntil(isDone);
}

bool EventLoop::runUntil(const bool& done) { return runUntil(done, Clock::time_point::max()); }

bool EventLoop::runUntil(const bool& done, std::chrono::nanoseconds longest) {
  return runUntil(done, Clock::now() + longest);
}

bool EventLoop::runUntil(const bool& done, Clock::time_point end) {
  while (!done && !isStopped_) {
    if (step() || done || isStopped_) continue;
    if (Clock::now() >= end) return false;
    sleepUntil(end);
  }
  return done;
}

void EventLoop::poll() {
  while (step()) {
  }
}

bool EventLoop::step() {
  wheel_->turn(Mox::now());
  const bool isHandled = asio_->io.poll_one() != 0;
  if (onRound_) onRound_();
  return isHandled;
}

void EventLoop::sleepUntil(Clock::time_point end) {
  const Clock::time_point due = Clock::now() + sleepOf(wheel_->nextDue() - Mox::now());
  asio_->io.run_one_until(std::min(due, end));
}

}  // namespace Agent
