// Where the sending of a collection stands between two drains, and how a drain changes that.
//
// Members that came or went are sent in a walk, between a begin and an end marker: a whole walk
// names every member, any other walk the keys that changed. Changes inside members that the peer
// has need no walk. Either a drain sends all of that, after which no state is left, or the stream
// is full before: then the state and the place of the stop give the next state.
//
// Keys and the inside of members take turns at being sent first, so that neither waits for ever
// while the other one changes all the time: each place has two states, and each stop changes the
// turn. Within the collection itself the turn is kept for later: a whole walk through the
// collection comes before the inside of members.
#pragma once

#include <MoxBase/Export.h>
#include <MoxBase/Types.h>

namespace Mox::NboAttrLog {

enum class WalkState : U8 {
  idle,                // nothing was interrupted
  wholeDue,            // a whole walk is to begin
  wholeKeysFirst,      // a whole walk stopped within the collection itself
  wholeInsideFirst,    // the same, in the other turn
  tailKeysFirst,       // a whole walk stopped at keys that came or went after their turn
  tailInsideFirst,     // the same, in the other turn
  changesKeysFirst,    // a walk through changed keys stopped
  changesInsideFirst,  // the same, in the other turn
  betweenKeysFirst,    // no walk is under way; the inside of members was interrupted
  betweenInsideFirst,  // the same, in the other turn
};

// Where a drain stopped because the stream was full.
enum class WalkStop : U8 {
  collection,  // within the collection itself, whose every member a whole walk names
  keys,        // at the keys that came or went
  beforeKeys,  // inside a member, whose turn it was to be sent first
  inside,      // inside a member, after the keys
};

struct WalkTransition {
  WalkState from;
  WalkStop stop;
  WalkState to;
};

// Every transition that a stop can make. From any state, a drain that sends everything leaves no
// state, and a whole walk that becomes necessary leads to wholeDue. Leaves have no inside: for
// them, `inside` is a stop outside a walk, in whichever turn.
inline constexpr WalkTransition walkTransitions[] = {
    {WalkState::idle, WalkStop::keys, WalkState::changesInsideFirst},
    {WalkState::idle, WalkStop::inside, WalkState::betweenInsideFirst},

    {WalkState::wholeDue, WalkStop::collection, WalkState::wholeInsideFirst},
    {WalkState::wholeDue, WalkStop::keys, WalkState::tailInsideFirst},

    {WalkState::wholeKeysFirst, WalkStop::collection, WalkState::wholeInsideFirst},
    {WalkState::wholeKeysFirst, WalkStop::keys, WalkState::tailInsideFirst},
    {WalkState::wholeKeysFirst, WalkStop::inside, WalkState::betweenInsideFirst},
    {WalkState::wholeInsideFirst, WalkStop::collection, WalkState::wholeKeysFirst},
    {WalkState::wholeInsideFirst, WalkStop::keys, WalkState::tailKeysFirst},
    {WalkState::wholeInsideFirst, WalkStop::inside, WalkState::betweenKeysFirst},

    {WalkState::tailKeysFirst, WalkStop::keys, WalkState::tailInsideFirst},
    {WalkState::tailKeysFirst, WalkStop::inside, WalkState::betweenInsideFirst},
    {WalkState::tailInsideFirst, WalkStop::beforeKeys, WalkState::tailKeysFirst},
    {WalkState::tailInsideFirst, WalkStop::keys, WalkState::tailKeysFirst},

    {WalkState::changesKeysFirst, WalkStop::keys, WalkState::changesInsideFirst},
    {WalkState::changesKeysFirst, WalkStop::inside, WalkState::betweenInsideFirst},
    {WalkState::changesInsideFirst, WalkStop::beforeKeys, WalkState::changesKeysFirst},
    {WalkState::changesInsideFirst, WalkStop::keys, WalkState::changesKeysFirst},

    {WalkState::betweenKeysFirst, WalkStop::keys, WalkState::changesInsideFirst},
    {WalkState::betweenKeysFirst, WalkStop::inside, WalkState::betweenInsideFirst},
    {WalkState::betweenInsideFirst, WalkStop::beforeKeys, WalkState::betweenKeysFirst},
    {WalkState::betweenInsideFirst, WalkStop::keys, WalkState::changesKeysFirst},
    {WalkState::betweenInsideFirst, WalkStop::inside, WalkState::betweenKeysFirst},
};

// The state after a stop, which has to be in the table.
MOX_PUBLIC WalkState nextState(WalkState from, WalkStop stop);

// The walk goes, or is to go, through the collection itself.
constexpr bool isInCollection(WalkState state) {
  return state == WalkState::wholeDue || state == WalkState::wholeKeysFirst ||
         state == WalkState::wholeInsideFirst;
}
// The walk names every member, so that the peer can remove the others.
constexpr bool isWhole(WalkState state) {
  return isInCollection(state) || state == WalkState::tailKeysFirst ||
         state == WalkState::tailInsideFirst;
}
// The stream was full before everything was sent.
constexpr bool isInterrupted(WalkState state) {
  return state != WalkState::idle && state != WalkState::wholeDue;
}
// The begin of a walk has been sent, and its last end has not.
constexpr bool isBegun(WalkState state) {
  return isInterrupted(state) && state != WalkState::betweenKeysFirst &&
         state != WalkState::betweenInsideFirst;
}
constexpr bool isInsideFirst(WalkState state) {
  return state == WalkState::tailInsideFirst || state == WalkState::changesInsideFirst ||
         state == WalkState::betweenInsideFirst;
}

}  // namespace Mox::NboAttrLog
