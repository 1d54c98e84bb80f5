// A connection to the running agent for programs that fetch its state, possibly change settings,
// and end. Each call waits until its work is done.
//
//   EventLoop loop;
//   AttrLogClient client(loop, servedAttrLogSocketPath());
//   client.fetch();
//   client.interfaces().at("eth0").status->state();
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <Client/AttrLogCopy.h>
#include <Local/EventLoop.h>

namespace Agent {

// How long a call waits for an agent that sends nothing.
inline constexpr std::chrono::seconds longestSilence(10);

// Throws BadRequest when the agent has no interface of that name.
const AttrLogCopy::Interface& interfaceOf(const AttrLogCopy::Interfaces& interfaces,
                                          const std::string& name);

// Every call throws std::runtime_error with the reason when the agent cannot be reached, refuses,
// closes the connection, or sends nothing for too long.
class AttrLogClient {
 public:
  AttrLogClient(EventLoop& loop, const std::string& path,
                std::chrono::seconds silence = longestSilence);

  // Connects, and returns when the copies are complete. There is no time limit while the agent
  // keeps sending.
  void fetch();
  // The same from a server that the caller has connected to.
  void fetch(Descriptor socket);
  // Sends the values that `write` sets in the copies as one change; see AttrLogCopy.
  void writeTogether(const std::function<void()>& write) { copy_.writeTogether(write); }
  // Waits until the agent has acted on everything that was written. Returns false when that takes
  // longer than `longest`.
  bool settle(std::chrono::seconds longest);

  const AttrLogCopy::Interfaces& interfaces() const { return copy_.interfaces(); }
  // Limits of all interfaces; null when the agent serves none.
  const Mox::Ptr<IntakeProcessConfig>& process() const { return copy_.process(); }
  // Null when the server is no store.
  const Mox::Ptr<StoreState>& storeState() const { return copy_.storeState(); }

 private:
  EventLoop& loop_;
  const std::chrono::seconds silence_;
  bool isCurrent_ = false;
  bool isAnswered_ = false;
  bool inputCame_ = false;
  AttrLogCopy copy_;
};

}  // namespace Agent
