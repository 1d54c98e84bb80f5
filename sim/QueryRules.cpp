#include "QueryRules.h"

namespace Sim {

void QueryRules::onReceived(const Frame& frame, const Router& router) {
  if (frame.drops == 0) return;
  Sent& sent = routers_[router.node()];
  // A query for the group, and one with each value of the S flag.
  const double queries = 3 * facts_.bounds.most().lastMemberQueryCount;
  for (unsigned g = 0; g < groupsMost; ++g) {
    if (ofGroup(frame.drops, g) != 0) sent.allowed[g] += queries;
  }
}

void QueryRules::onSent(const Frame& frame) {
  if (!frame.isQuery()) return;
  const Router& router = *facts_.routers[frame.sender];
  Sent& sent = routers_[frame.sender];
  if (frame.kind == Frame::specificQuery) {
    const unsigned group = static_cast<unsigned>(__builtin_ctz(frame.asks)) / channelsOfGroup;
    if (--sent.allowed[group] >= 0) return;
    facts_.breach(Invariant::queriesAllowed, facts_.nameOf(router) + " asks for group " +
                                                 std::to_string(group) +
                                                 " more often than leaves allow");
    return;
  }
  const Settings& settings = router.settings();
  const Seconds least = std::min(settings.queryInterval, settings.startupQueryInterval);
  if (sent.free > 0) {
    --sent.free;
  } else if (facts_.wasSilenced && frame.sent < sent.lastGeneral + least - rounding) {
    facts_.known(Known::queryingOff);
  } else if (router.querierSm()->transitionToNonQuerier() &&
             frame.sent < sent.lastGeneral + least - rounding) {
    facts_.known(Known::handOverPending);
  } else if (frame.sent < sent.lastGeneral + least - rounding) {
    facts_.breach(Invariant::queriesAllowed, facts_.nameOf(router) + " asks again after " +
                                                 std::to_string(frame.sent - sent.lastGeneral) +
                                                 " s");
  }
  sent.lastGeneral = frame.sent;
}

}  // namespace Sim
