// Faults that are planted in a world to see that an invariant finds them: one for each.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "Findings.h"
#include "Host.h"
#include "Router.h"

namespace Sim {

enum class Canary : U8 {
  none,
  silentWinner,      // a router that takes no query of others as received, and sends none
  askingDouble,      // a second station asks with the address of a router that is no querier
  muteHost,          // a host does not answer, but is believed to
  ghostHost,         // a host goes on to answer for groups that it has left
  dropsLeaves,       // a router does not see leaves and specific queries
  forgetsOnRestart,  // a router comes back without the state that it had
  hoards,            // a router keeps the status of each group that it ever had
  sendsTwice,        // a router sends each query twice
};

struct CanaryName {
  Canary canary;
  const char* name;
  Invariant finds;
};
inline constexpr std::array canaries{
    CanaryName{Canary::silentWinner, "silentWinner", Invariant::oneQuerier},
    CanaryName{Canary::askingDouble, "askingDouble", Invariant::onlyQuerierAsks},
    CanaryName{Canary::muteHost, "muteHost", Invariant::membersKept},
    CanaryName{Canary::ghostHost, "ghostHost", Invariant::goneInTime},
    CanaryName{Canary::dropsLeaves, "dropsLeaves", Invariant::followsQuerier},
    CanaryName{Canary::forgetsOnRestart, "forgetsOnRestart", Invariant::restartKeeps},
    CanaryName{Canary::hoards, "hoards", Invariant::memoryReturns},
    CanaryName{Canary::sendsTwice, "sendsTwice", Invariant::queriesAllowed}};

constexpr Router::Fault faultOf(Canary canary) {
  switch (canary) {
    case Canary::silentWinner: return Router::Fault::silentWinner;
    case Canary::dropsLeaves: return Router::Fault::dropsLeaves;
    case Canary::forgetsOnRestart: return Router::Fault::forgetsOnRestart;
    case Canary::hoards: return Router::Fault::hoards;
    case Canary::sendsTwice: return Router::Fault::sendsTwice;
    default: return Router::Fault::none;
  }
}

constexpr Host::Fault hostFaultOf(Canary canary) {
  switch (canary) {
    case Canary::muteHost: return Host::Fault::mute;
    case Canary::ghostHost: return Host::Fault::ghost;
    default: return Host::Fault::none;
  }
}

}  // namespace Sim
