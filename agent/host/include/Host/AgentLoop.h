// The live agent: queriers on real interfaces, one event loop, one thread, one timer wheel.
//
// It sleeps until a packet, a timer, a change of an interface or a signal wakes it. Whatever it
// was, the packets that have arrived are handled first, then the timers that are due. The activity
// clock is the machine's monotonic one.
//
//   AgentLoop loop({.interfaces = {{"eth0", config}}}, *sink);
//   loop.run();  // until SIGINT or SIGTERM
//   printState(stdout, StatePart::everything, loop.views(), Mox::now(), Format::text);
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <Events/Event.h>
#include <Events/StatusWatcher.h>
#include <Host/InterfaceSetup.h>
#include <Intake/IntakeProcess.h>
#include <Report/InterfaceView.h>
#include <Server/AttrLogServer.h>

namespace Agent {

class AgentLoop {
 public:
  struct Setup {
    std::vector<InterfaceSetup> interfaces;
    Mox::Ptr<IntakeProcessConfig> process = Mox::makePtr<IntakeProcessConfig>();
    bool reportQueries = false;  // an event for each query sent
    EventScope eventScope = EventScope::changes;
    // SIGUSR1. Called again, between other work, while it returns true: there is more to write.
    std::function<bool()> onStateRequested;
    std::optional<AttrLogServer::Setup> attrLog = {};  // none: no other process sees the state
    // True: it is an error when the sockets of the attribute log and of requests cannot be served.
    // False: an event reports it, and the agent runs without them.
    bool attrLogRequired = false;
    // Of each interface's receive ring; a share of what all may take if none.
    std::optional<size_t> ringBytes = {};
  };

  // The queriers run from the construction on. Throws std::system_error when the interfaces cannot
  // be watched, and std::runtime_error when the attribute log or requests cannot be served.
  AgentLoop(const Setup& setup, EventSink& sink);
  ~AgentLoop();
  AgentLoop(const AgentLoop&) = delete;
  AgentLoop& operator=(const AgentLoop&) = delete;

  // Returns after SIGINT or SIGTERM.
  void run();
  std::vector<InterfaceView> views() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Agent
