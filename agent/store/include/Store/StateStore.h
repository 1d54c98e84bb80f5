// Keeps the state of an agent beyond the end of that agent: a live copy of everything that its
// attribute log sends, served read-only at a socket of its own in the same form.
//
// There is one copy. While no agent runs it stays as it is. A new agent reads it before it sends
// anything, and then sends its own state; this changes the copy in place, and what is missing in it
// leaves the copy only where a walk of the new agent has passed it. So there is never less than
// before, even if agents are killed one after the other. It connects to the agent as long as it
// runs, and whatever is wrong with the agent's bytes is reported and tried again.
//
//   StateStore store(loop, {.path = storeSocketPath(), .agentPath = attrLogSocketPath()}, *sink);
//   store.start();
//   loop.run();
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include <Client/AttrLogCopy.h>
#include <Events/Event.h>
#include <Local/EventLoop.h>
#include <Mox/Entity.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Obel/TimerReactor.h>
#include <Report/StoreState.h>
#include <Server/AttrLogServer.h>
#include <Server/RequestServer.h>
#include <Service/ServiceManager.h>

namespace Agent {

class StateStore {
 public:
  // What a killed agent's successor learns before the store is connected to it would be lost with
  // it, so the store does not wait for long.
  static constexpr Mox::Seconds retryInterval = 0.2;
  // An agent that refuses the store or is not understood remains so for a while.
  static constexpr Mox::Seconds refusedInterval = 5.0;

  struct Setup {
    std::string path;       // where it serves its copy
    std::string agentPath;  // of the agent's attribute log
    ServiceManager::Setup service = {};
  };

  // Throws std::runtime_error with the reason and a remedy when it cannot serve that path.
  StateStore(EventLoop& loop, const Setup& setup, EventSink& sink);
  ~StateStore();
  StateStore(const StateStore&) = delete;
  StateStore& operator=(const StateStore&) = delete;

  // From here on it connects to the agent.
  void start();
  // Drops the copy of one interface, or of all for an empty name. Returns how many groups it had.
  // Throws std::runtime_error while an agent sends its state: it would not send that again.
  size_t forget(const std::string& interface);

  const StoreState& state() const { return *state_; }

 private:
  RequestServices services();
  RequestServices::Queriers interfaceNames() const;
  ObjectRoots roots() const;
  void handleRound();
  // Serves the entries that the copy has now, and no others.
  void serveEntries();
  void countGroups();
  void handleEntries();
  void handleCurrent();
  void handleEnded(AttrLogCopy::End end, const std::string& why);
  void handleRetryTimer();
  void agentLost(const std::string& why);
  // The same problem is reported once, until an agent has sent its state.
  void reportProblem(const std::string& text);
  void report(Event::Kind kind, const std::string& text = {});
  std::string serviceStatus() const;

  EventLoop& loop_;
  EventSink& sink_;
  const Mox::Ptr<StoreState> state_ = Mox::makePtr<StoreState>();
  AttrLogServer server_;
  RequestServer requests_;
  AttrLogCopy copy_;
  std::map<std::string, const Mox::EntityBase*> served_;  // of the copy, by path
  bool isReceiving_ = false;                              // the agent sends its state
  std::string problem_;                                   // that was reported last
  ServiceManager serviceManager_;
  Obel::TimerReactor<StateStore, &StateStore::handleRetryTimer> retryTimer_;
  Obel::TimerReactor<StateStore, &StateStore::handleRound> outputTimer_;
};

}  // namespace Agent
