// The state that an agent has left in a store, as the next agent reads it before it begins.
//
// The store shares the machine, its boot and the user of the agent, or runs as root; what it sends
// is the agent's only when nothing of the agent before is still on its way to the store. Nothing is
// taken from a store where any of that is in doubt.
//
//   const KeptState kept = keptState(loop, "/run/igmpq-store/store.sock");
//   kept.interfaces.at("eth0").status->group();
#pragma once

#include <chrono>
#include <string>

#include <Client/AttrLogCopy.h>
#include <Local/EventLoop.h>
#include <MoxBase/Types.h>

namespace Agent {

struct KeptState {
  AttrLogCopy::Interfaces interfaces;
  Mox::Seconds lostTime = 0.0;  // when the agent before was lost; 0 where nothing is kept
};

// How long an agent that starts waits for the store: until it says whose state it has, and from
// then on until all of that was received.
struct StorePatience {
  std::chrono::nanoseconds begin = std::chrono::seconds(1);
  std::chrono::nanoseconds complete = std::chrono::seconds(10);
};

// The connection has ended when it returns, so that the entities are the caller's. Throws
// std::runtime_error with the reason why nothing can be taken over.
KeptState keptState(EventLoop& loop, const std::string& path, StorePatience patience = {});

}  // namespace Agent
