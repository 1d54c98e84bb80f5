// The bytes of queries as a host reads them, and of reports as a host writes them (RFC 3376 4, RFC
// 2236 2, RFC 1112 appendix I). It shares no code with the queriers.
#pragma once

#include <optional>
#include <span>
#include <vector>

#include <IlvoTestSupport/IgmpPacketBuilder.h>

#include "Frame.h"

namespace Sim {

struct Query {
  unsigned version = 3;
  bool isGeneral = true;
  unsigned group = groupsMost;
  Mask sources = 0;  // bits of namedSources; 0 in a query that names none
  bool namesSources = false;
  bool suppresses = false;  // the S flag
  Seconds maxResponse = 0.0;
  unsigned robustness = 0;
  Seconds interval = 0.0;
};

// Nothing for a packet that is no query of a known group.
std::optional<Query> queryOf(std::span<const U8> packet);

// The channels that it asks about.
Mask askedBy(const Query& query);

Mask assertedBy(const Record& record);
Mask droppedBy(const Record& record);

// Whole frames from the host of that number.
Ilvo::IpAddr hostAddr(Node host);
std::vector<U8> v3ReportFrame(Node host, std::span<const Record> records);
std::vector<U8> oldReportFrame(Node host, unsigned version, unsigned group);
std::vector<U8> leaveFrame(Node host, unsigned group);
// A router's packet in its frame; its number makes the MAC address.
std::vector<U8> frameOf(Node sender, std::span<const U8> packet);

}  // namespace Sim
