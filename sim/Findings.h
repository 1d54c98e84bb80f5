// What a run of a world finds: the first broken invariant, and counts.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "Frame.h"

namespace Sim {

// The rules that hold at all times. doc/known-behaviour.md explains each.
enum class Invariant : U8 {
  oneQuerier,       // the lowest address, and no other
  onlyQuerierAsks,  // general queries
  membersKept,
  goneInTime,
  followsQuerier,  // non-queriers forget with the querier
  restartKeeps,
  memoryReturns,
  queriesAllowed,
};
inline constexpr std::array invariantNames{"oneQuerier",    "onlyQuerierAsks", "membersKept",
                                           "goneInTime",    "followsQuerier",  "restartKeeps",
                                           "memoryReturns", "queriesAllowed"};

// Behaviour on purpose, which is recognised by its rule where an invariant would be broken.
enum class Known : U8 {
  handOverPending,
  leaveActedOnAlone,
  versionOneElection,
  versionOneNotAsked,
  queryingOff,
  olderReports,
  oldModeSources,
  repeatedOldQuery,
  crowdedQueries,
  overtakenQuery,
  specificQueryTimes,
  differentSettings,
  excludedSourceAsked,
};
inline constexpr std::array knownNames{
    "handOverPending",    "leaveActedOnAlone", "versionOneElection", "versionOneNotAsked",
    "queryingOff",        "olderReports",      "oldModeSources",     "repeatedOldQuery",
    "crowdedQueries",     "overtakenQuery",    "specificQueryTimes", "differentSettings",
    "excludedSourceAsked"};

struct Breach {
  Invariant invariant = Invariant::oneQuerier;
  Seconds time = 0.0;  // from the beginning of the world
  std::string text = {};
};

struct Counts {
  U64 worlds = 0;
  double simulatedTime = 0.0;
  U64 packets = 0;  // into queriers
  U64 elections = 0;
  U64 losses = 0;
  U64 suppressed = 0;  // answers of versions 1 and 2
  U64 restarts = 0;
  U64 takeOvers = 0;  // restarts on what a store has kept
  U64 handOvers = 0;  // elections lost with retransmissions pending
  U64 excused = 0;    // members forgotten after more losses than the robustness covers
  std::array<U64, knownNames.size()> known{};
  std::array<U64, knownNames.size()> knownSeed{};  // of the first; 0 for none
  // By filter mode, compatibility mode and record type, each from 1.
  U64 records[2][3][6] = {};
  U64 roles[3][3] = {};  // changes, from and to

  void add(const Counts& other);
};

struct Findings {
  std::optional<Breach> breach = {};
  Counts counts = {};
};

}  // namespace Sim
