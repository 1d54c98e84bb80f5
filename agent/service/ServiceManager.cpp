#include <Service/ServiceManager.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

#include <Mox/ActivityClock.h>

namespace Agent {

namespace {

constexpr Mox::Seconds statusInterval = 1.0;

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : value;
}

std::optional<Mox::U64> numberIn(std::string_view text) {
  Mox::U64 number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// A manager that sees the time at which the reading began knows which request it answers.
std::string stateLine(ServiceManager::State state) {
  switch (state) {
    case ServiceManager::ready: return "READY=1\n";
    case ServiceManager::reloading:
      return fmt::format("RELOADING=1\nMONOTONIC_USEC={:.0f}\n", Mox::now() * 1e6);
    case ServiceManager::stopping: return "STOPPING=1\n";
    default: return {};
  }
}

}  // namespace

// The variables of the watchdog may be meant for another process, which passed them on.
ServiceManager::Setup ServiceManager::fromEnvironment() {
  Setup setup{.socket = std::string(environment("NOTIFY_SOCKET"))};
  const auto watchdog = numberIn(environment("WATCHDOG_USEC"));
  const std::string_view pid = environment("WATCHDOG_PID");
  if (watchdog && *watchdog != 0 && (pid.empty() || numberIn(pid) == Mox::U64(getpid()))) {
    setup.watchdog = static_cast<Mox::Seconds>(*watchdog) * 1e-6;
  }
  return setup;
}

// Twice as often as it must be, as one may be late.
ServiceManager::ServiceManager(const Mox::Ptr<const Obel::TimerWheel>& wheel, const Setup& setup,
                               std::function<std::string()> statusLine)
    : feedInterval_(setup.watchdog / 2), statusLine_(std::move(statusLine)), timer_(wheel, *this) {
  if (!setup.socket.empty()) manager_.emplace(setup.socket);
}

void ServiceManager::stateIs(State state) {
  if (!manager_) return;
  state_ = state;
  isStateSent_ = false;
  send();
  timer_.timeMinIs(Mox::now() + std::min(statusInterval, feedInterval_));
}

void ServiceManager::handleTimer() {
  send();
  timer_.timeMinIs(Mox::now() + std::min(statusInterval, feedInterval_));
}

// All that is new in one message. If it is not taken now, it is still new the next time.
void ServiceManager::send() {
  std::string message = isStateSent_ ? std::string() : stateLine(state_);
  const std::string status = isRunning() ? statusLine_() : sentStatus_;
  if (status != sentStatus_) message += fmt::format("STATUS={}\n", status);
  // A timer may be a moment early by another clock.
  const bool isFed = Mox::now() >= lastFed_ + feedInterval_ * 0.99;
  if (isFed) message += "WATCHDOG=1\n";
  if (message.empty() || manager_->send(message) != DatagramSender::sent) return;
  isStateSent_ = true;
  sentStatus_ = status;
  if (isFed) lastFed_ = Mox::now();
}

}  // namespace Agent
