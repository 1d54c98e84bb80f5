// Reports the events of a running agent as long as the loop runs. When the agent ends, it
// reconnects as soon as the agent runs again.
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
    bool counters = false;                  // report changes of counters, too
    bool fromTheBeginning = false;          // report the groups that exist at the start, too
  };

  AgentWatcher(EventLoop& loop, Options options, EventSink& sink);

  // Throws ConnectError. After this call, the loop throws BadRequest when the agent lacks one of
  // the named interfaces. It throws std::runtime_error when the agent ends the first connection
  // before the copies are complete, or violates the protocol.
  void start();

 private:
  // The copies are reported only when they have the agent's state of one moment. Before that, they
  // may have a part of the changes of one packet, such as a new group without its reporter.
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
  bool wasCurrent_ = false;  // the copies have been complete at least once
  bool isCurrent_ = false;
  bool isAsked_ = false;
  Obel::TimerReactor<AgentWatcher, &AgentWatcher::handleRetryTimer> retryTimer_;
  Obel::TimerReactor<AgentWatcher, &AgentWatcher::handleCounterTimer> counterTimer_;
};

}  // namespace Agent
