// Reports the events of a running agent as long as the loop runs, and goes on when the agent
// restarts.
//
//   AgentWatcher watcher(loop, {.path = servedAttrLogSocketPath()}, *sink);
//   watcher.start();
//   loop.run();
#pragma once

#include <set>
#include <string>

#include <Client/AttrLogCopy.h>
#include <Client/CopyWatcher.h>
#include <Events/Event.h>
#include <Local/EventLoop.h>
#include <Obel/TimerReactor.h>

namespace Agent {

class AgentWatcher {
 public:
  static constexpr Mox::Seconds retryInterval = 0.5;
  static constexpr Mox::Seconds counterInterval = 1.0;

  struct Options {
    std::string path = {};                  // of the agent's attribute log
    std::set<std::string> interfaces = {};  // all of them if none
    bool counters = false;                  // report them, too
    bool fromTheBeginning = false;          // report the groups that are there, too
  };

  AgentWatcher(EventLoop& loop, Options options, EventSink& sink);

  // Throws ConnectError. From here on, the loop throws BadRequest when the agent has no interface
  // of one of the names, and std::runtime_error when it ends the first connection before its state
  // is complete, or does not keep to the protocol.
  void start();

 private:
  // The copies are reported when they have the agent's state of one moment: the changes that one
  // packet causes may come in parts, and a group comes before its reporter.
  void handleCurrent();
  void handleInput();
  void handleAnswer();
  void handleEnded(AttrLogCopy::End end, const std::string& why);
  void handleRetryTimer();
  void handleCounterTimer();

  const Options options_;
  EventSink& sink_;
  AttrLogCopy copy_;
  CopyWatcher watcher_;
  bool wasCurrent_ = false;  // at any time
  bool isCurrent_ = false;
  bool isAsked_ = false;
  Obel::TimerReactor<AgentWatcher, &AgentWatcher::handleRetryTimer> retryTimer_;
  Obel::TimerReactor<AgentWatcher, &AgentWatcher::handleCounterTimer> counterTimer_;
};

}  // namespace Agent
