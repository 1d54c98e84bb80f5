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
    // An agent that is not there, or that is not understood, is waited for from the start on.
    bool waits = false;
  };

  AgentWatcher(EventLoop& loop, Options options, EventSink& sink);

  // Throws ConnectError. After this call, the loop throws BadRequest when the agent lacks one of
  // the named interfaces. It throws std::runtime_error when the agent ends the first connection
  // before the copies are complete, or violates the protocol. With `waits` none of this is thrown.
  void start();

  // The copies of its state: as it was at the end, while there is no agent.
  const AttrLogCopy::Interfaces& interfaces() const { return copy_.interfaces(); }
  // The same, with what all interfaces have together.
  const AttrLogCopy& copy() const { return copy_; }
  // Whether the copies are those of an agent that runs now.
  bool isCurrent() const { return isCurrent_; }
  // When that became what it is, on the activity clock.
  Mox::Seconds since() const { return since_; }
  // Why there is no agent; empty while there is one.
  const std::string& absence() const { return absence_; }

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
  Mox::Seconds since_ = 0.0;
  std::string absence_ = "not connected yet";
  Obel::TimerReactor<AgentWatcher, &AgentWatcher::handleRetryTimer> retryTimer_;
  Obel::TimerReactor<AgentWatcher, &AgentWatcher::handleCounterTimer> counterTimer_;
};

}  // namespace Agent
