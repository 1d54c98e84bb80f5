// A frame on the link, and its meaning, which is worked out once, when it is sent.
#pragma once

#include <span>
#include <string>
#include <vector>

#include <MoxBase/Types.h>

#include "Channels.h"

namespace Sim {

using Mox::Seconds;
using Mox::U32;
using Mox::U64;
using Mox::U8;

// Routers and hosts of a world, routers first.
using Node = U32;

// One group record, with sources as bits.
struct Record {
  enum Type : U8 { isIn = 1, isEx = 2, toIn = 3, toEx = 4, allow = 5, block = 6 };
  Type type = isIn;
  unsigned group = 0;
  Mask sources = 0;
};

struct Frame {
  enum Kind : U8 { generalQuery, specificQuery, report, leave };

  Node sender = 0;
  Seconds sent = 0.0;
  Kind kind = report;
  U8 version = 3;
  bool isUnsolicited = false;  // a report of a change, not an answer
  bool suppresses = false;     // a query that lowers no timers (RFC 3376 4.1.5)
  Mask asks = 0;               // of a query
  Mask asserts = 0;            // of a report: its sender is to be served these
  Mask wanted = 0;  // those of `asserts` that the sender did want when it sent the report
  Mask drops = 0;   // of a report or leave: its sender does not want these
  std::vector<Record> records = {};  // of a report of version 3
  std::vector<U8> bytes = {};        // from the Ethernet header on

  bool isQuery() const { return kind == generalQuery || kind == specificQuery; }
  // For people.
  friend std::string textOf(const Frame& frame);
  std::span<const U8> packet() const { return std::span(bytes).subspan(14); }
};

}  // namespace Sim
