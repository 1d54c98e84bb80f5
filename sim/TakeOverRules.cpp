#include "TakeOverRules.h"

namespace Sim {

using Gmp::Igmp::QuerierStatus;

namespace {

// The channels of a group with a timer that runs: that of the group now, those of its sources at
// that time. When the timer of a group runs out, the sources that somebody wants are left (RFC 3376
// 6.5).
Mask servedAt(const Gmp::Igmp::QuerierGroupStatus& group, Seconds time) {
  const bool exclude =
      group.filterMode() == Gmp::Igmp::filterModeExclude && group.expiryTime() > Mox::now();
  Mask mask = exclude ? wholeGroup : 0;
  for (unsigned s = 0; s < sourcesMost; ++s) {
    const auto source = group.source(sourceAddr(s));
    if (!source) continue;
    const bool runs = !source->expired() && source->expiryTime() > time;
    if (exclude && !runs) mask &= ~(1U << s);
    if (!exclude && runs) mask |= 1U << s;
  }
  return mask;
}

}  // namespace

TakeOverRules::TakeOverRules(Facts& facts, const QuerierStatus& kept)
    : facts_(facts),
      wasQuerier_(kept.state() == QuerierStatus::querierStateQuerier),
      queriesSent_(kept.totalGeneralQueriesSent()) {
  for (unsigned g = 0; g < groupsMost; ++g) {
    const auto group = kept.group(groupAddr(g));
    if (!group) continue;
    created_[g] = group->creationTime();
    mustServe_ |= inGroup(g, servedAt(*group, Mox::now()));
    mayServe_ |= inGroup(g, servedAt(*group, Mox::now() - Router::storeGrace));
  }
}

void TakeOverRules::check(const Router& router) const {
  const std::string name = facts_.nameOf(router);
  const Mask served = router.served();
  if ((mustServe_ & ~served) != 0) {
    facts_.breach(Invariant::restartKeeps, name + " has lost members that its store had");
  }
  if ((served & ~mayServe_) != 0) {
    facts_.breach(Invariant::goneInTime, name + " serves again what has ended meanwhile");
  }
  for (unsigned g = 0; g < groupsMost; ++g) {
    const auto group = router.status().group(groupAddr(g));
    if (group && group->creationTime() != created_[g]) {
      facts_.breach(Invariant::restartKeeps, name + " counts a group as new that it took over");
    }
  }
  const bool asks = router.isQuerier() && router.settings().sendQuery != 0;
  if (wasQuerier_ && asks && router.status().totalGeneralQueriesSent() == queriesSent_) {
    facts_.breach(Invariant::restartKeeps, name + " was the querier and does not ask at once");
  }
}

}  // namespace Sim
