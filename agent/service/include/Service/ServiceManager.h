// The service manager that started the agent, such as systemd, which is notified of its state.
//
// It names a socket in the environment, and how often it must be notified that the agent's loop
// still runs: else it kills the agent. So a timer of the loop's own wheel does that. A message that
// the manager does not take now is sent a moment later, and never waited for. Without a manager
// nothing is done.
//
//   ServiceManager manager(wheel, ServiceManager::fromEnvironment(), [] { return "2 groups"; });
//   manager.stateIs(ServiceManager::ready);
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <Local/DatagramSender.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Obel/TimerReactor.h>
#include <Obel/TimerWheel.h>

namespace Agent {

class ServiceManager {
 public:
  enum State { starting, ready, reloading, stopping };
  struct Setup {
    std::string socket = {};             // empty: there is no manager
    Mox::Seconds watchdog = Mox::never;  // it kills an agent that is silent for longer
  };

  // As NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID say.
  static Setup fromEnvironment();

  // The line about the agent's state is taken once a second.
  ServiceManager(const Mox::Ptr<const Obel::TimerWheel>& wheel, const Setup& setup,
                 std::function<std::string()> statusLine);

  void stateIs(State state);

 private:
  void handleTimer();
  void send();
  bool isRunning() const { return state_ == ready || state_ == reloading; }

  std::optional<DatagramSender> manager_;
  const Mox::Seconds feedInterval_;
  const std::function<std::string()> statusLine_;
  State state_ = starting;
  bool isStateSent_ = true;
  std::string sentStatus_;
  Mox::Seconds lastFed_ = 0.0;
  Obel::TimerReactor<ServiceManager, &ServiceManager::handleTimer> timer_;
};

}  // namespace Agent
