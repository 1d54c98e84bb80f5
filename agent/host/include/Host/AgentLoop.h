// The live agent: queriers on real interfaces, one event loop, one thread, one timer wheel.
//
// It sleeps until a packet, a timer, a change of an interface or a signal wakes it. Whatever it
// was, the packets that have arrived are handled first, then the timers that are due. The activity
// clock is the machine's monotonic one.
//
// SIGHUP, or a request, makes it read its configuration again: all of it is taken over or nothing,
// and what did not change is not touched.
//
//   AgentLoop loop({.config = {.settings = configuredAgent(&files, given, {"eth0"})}}, *sink);
//   loop.run();  // until SIGINT or SIGTERM
//   printState(stdout, StatePart::everything, loop.views(), Mox::now(), Format::text);
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <Config/ConfiguredAgent.h>
#include <Events/Event.h>
#include <Link/LinkTable.h>
#include <Local/LocalPeer.h>
#include <Report/InterfaceView.h>
#include <Service/ServiceManager.h>

namespace Agent {

class AgentLoop {
 public:
  // What the command line and the files give together.
  struct Config {
    ConfiguredAgent settings;
    // Where other processes see the state, as the settings say or as is usual; empty: none do.
    std::string socketPath = {};
    RightsOf rightsOf = peerRights({});
  };
  struct Setup {
    Config config;
    // Reads the configuration again, for a machine with these interfaces. Throws
    // std::runtime_error. Null where no file is in use.
    std::function<Config(const LinkTable&)> configure = {};
    // It was taken over.
    std::function<void(const Config&)> onConfig = {};
    // SIGUSR1. Called again, between other work, while it returns true: there is more to write.
    std::function<bool()> onStateRequested = {};
    ServiceManager::Setup service = {};
  };

  // The queriers start one after the other while it runs. Throws std::system_error when the
  // interfaces cannot be watched, and std::runtime_error when the attribute log or requests cannot
  // be served.
  AgentLoop(const Setup& setup, EventSink& sink);
  ~AgentLoop();
  AgentLoop(const AgentLoop&) = delete;
  AgentLoop& operator=(const AgentLoop&) = delete;

  // Returns after SIGINT or SIGTERM the time at which it was received. Nothing is received or sent
  // any more then, the sockets for other processes are gone, and the views stay as they were.
  Mox::Seconds run();
  std::vector<InterfaceView> views() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Agent
