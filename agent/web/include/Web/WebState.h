// What there is to show: live copies of the agent's state, and its last events.
//
// The agent may be away: then the copies are as they were, and the state says so.
//
//   WebState state(loop, servedAttrLogSocketPath());
//   state.start();
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <Client/AgentWatcher.h>
#include <Local/EventLoop.h>
#include <Report/InterfaceView.h>
#include <Web/EventRing.h>

namespace Agent {

class WebState {
 public:
  WebState(EventLoop& loop, const std::string& path);

  void start() { watcher_.start(); }

  const AttrLogCopy::Interfaces& interfaces() const { return watcher_.interfaces(); }
  // Those whose copies are complete.
  std::vector<InterfaceView> views() const;
  std::optional<InterfaceView> view(const std::string& name) const;
  const AgentWatcher& agent() const { return watcher_; }
  EventRing& events() { return events_; }

 private:
  EventRing events_;
  AgentWatcher watcher_;
};

}  // namespace Agent
