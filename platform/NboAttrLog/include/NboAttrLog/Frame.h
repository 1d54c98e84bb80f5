// The frames of the attribute log. doc/attribute-log.md describes every byte of them.
//
// A frame is a length, a type and a payload, all numbers in network byte order. Each frame names
// its entity in full, so that no frame depends on the one before it.
#pragma once

#include <array>
#include <cstddef>
#include <tuple>

#include <Mox/AttrValue.h>
#include <MoxBase/Types.h>

namespace Mox::NboAttrLog {

inline constexpr U32 magic = 0x4d6f784c;  // "MoxL"
inline constexpr U16 protocolVersion = 1;

enum class FrameType : U8 {
  hello = 1,       // magic, version, sender's clock, rights of the receiver, sender's name
  root = 2,        // a directory entry: number, path, writable, type, construction argument
  rootGone = 3,    // number
  attributes = 4,  // entity, then pairs of attribute identifier and value
  begin = 5,       // entity, collection, flags: a collection walk begins or goes on
  addition = 6,    // member, collection, type, construction argument
  removal = 7,     // entity, collection, key
  end = 8,         // entity, collection, flags: the walk ends or is interrupted
  current = 9,     // everything that existed when the peer connected has been sent
  question = 10,   // token: to be answered when all frames before it have been acted on
  answer = 11,     // token
  refusal = 12,    // text: why the sender of this frame ends the connection
};

enum TransactionFlag : U8 {
  transactionWhole = 1,    // the walk names every member: all others were removed
  transactionResumed = 2,  // of a begin: the walk was interrupted before
  transactionMore = 2,     // of an end: the walk goes on later
};

// Bytes. A text longer than this is cut by the sender and refused by the receiver.
inline constexpr size_t longestText = 255;
inline constexpr size_t frameHead = 3;
inline constexpr size_t longestPayload = 1021;
inline constexpr size_t longestFrame = frameHead + longestPayload;

// How a construction argument is written: 0 for none, else one of these and the value.
constexpr U8 argumentKind(ValueKind kind) { return static_cast<U8>(static_cast<U8>(kind) + 1); }

// Names an entity: the number of its directory entry, then the keys that lead from there to it.
struct Ref {
  static constexpr size_t deepest = 4;

  U32 root = 0;
  U8 depth = 0;
  std::array<U32, deepest> keys{};

  Ref member(U32 key) const {
    Ref below = *this;
    below.keys.at(below.depth++) = key;
    return below;
  }
  friend bool operator==(const Ref&, const Ref&) = default;
  friend bool operator<(const Ref& a, const Ref& b) {
    return std::tie(a.root, a.depth, a.keys) < std::tie(b.root, b.depth, b.keys);
  }
};

}  // namespace Mox::NboAttrLog
