// The effect that a packet must have on the counters of a querier, computed from its bytes without
// any code of the receive path.
//
//   const Verdict verdict = judge(packet, {.configured = igmpVersion3}, *querier);
//   querier->doRxPkt(pkt);  // its counters have moved by verdict.moves
#pragma once

#include <span>
#include <vector>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <GmpIgmpQuerierTestSupport/QuerierInvariants.h>

namespace Fuzz {

struct Rules {
  Gmp::Igmp::IgmpVersion configured = Gmp::Igmp::igmpVersion3;
  bool boundary = false;  // around 239.255.0.0/16
};

struct Verdict {
  Gmp::Igmp::testing::ReceiveCounters moves = {};
  // The group of a query that takes effect; 0.0.0.0 for none.
  Ilvo::IpAddr asked = {};
  // The groups of a report that takes effect.
  std::vector<Ilvo::IpAddr> reported = {};
};

Verdict judge(std::span<const Mox::U8> packet, const Rules& rules,
              const Gmp::Igmp::QuerierSm& querier);

// Corrects both checksums, as far as the packet has them; its lengths stay as they are.
void repair(std::vector<Mox::U8>& packet);

}  // namespace Fuzz
