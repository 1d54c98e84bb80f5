#include "ElectionRules.h"

namespace Sim {

namespace {

bool anyOf(const Facts& facts, bool (*test)(const Router&)) {
  return std::ranges::any_of(facts.routers,
                             [&](const auto& each) { return each->isRunning() && test(*each); });
}
bool holdsNoElection(const Router& router) { return router.settings().version < 2; }
bool isSilent(const Router& router) { return router.settings().sendQuery == 0; }

}  // namespace

const Router* ElectionRules::expected() const {
  const Router* lowest = nullptr;
  for (const auto& each : facts_.routers) {
    if (!each->isRunning() || isSilent(*each)) continue;
    if (lowest == nullptr || each->address() < lowest->address()) lowest = each.get();
  }
  return lowest;
}

void ElectionRules::check() {
  if (!isWhole()) return;
  const Router* lowest = expected();
  for (const auto& each : facts_.routers) {
    if (!each->isRunning()) continue;
    if (each->isQuerier() && each.get() != lowest) judgeExtra(*each);
    if (!each->isQuerier() && each.get() == lowest) judgeMissing(*each);
  }
}

void ElectionRules::judgeExtra(const Router& router) {
  if (anyOf(facts_, holdsNoElection)) return facts_.known(Known::versionOneElection);
  if (router.querierSm()->transitionToNonQuerier()) return facts_.known(Known::handOverPending);
  if (facts_.wasSilenced) return facts_.known(Known::queryingOff);
  facts_.breach(Invariant::oneQuerier,
                facts_.nameOf(router) + " is querier, but has not the lowest address");
}

void ElectionRules::judgeMissing(const Router& router) {
  if (anyOf(facts_, holdsNoElection)) return facts_.known(Known::versionOneElection);
  if (facts_.wasSilenced) return facts_.known(Known::queryingOff);
  facts_.breach(Invariant::oneQuerier,
                facts_.nameOf(router) + " has the lowest address, but is no querier");
}

void ElectionRules::onRole(const Router& router) {
  if (!isWhole() || anyOf(facts_, holdsNoElection) || facts_.wasSilenced) return;
  if (!router.isQuerier()) return facts_.known(Known::handOverPending);
  if (!facts_.haveEqualTimes()) return facts_.known(Known::differentSettings);
  if (!facts_.haveEqualSettings() &&
      Mox::now() <= lastOldQuery_ + facts_.bounds.otherQuerierPresentInterval()) {
    return facts_.known(Known::specificQueryTimes);
  }
  facts_.breach(Invariant::oneQuerier,
                facts_.nameOf(router) + " takes the role although no query was lost");
}

void ElectionRules::onSent(const Frame& frame) {
  if (!frame.isQuery()) return;
  if (frame.kind == Frame::specificQuery && frame.version < 3) lastOldQuery_ = frame.sent;
  const Router& sender = *facts_.routers[frame.sender];
  if (sender.role() != Router::QuerierState::querierStateQuerier) {
    facts_.breach(Invariant::onlyQuerierAsks,
                  "a query of " + facts_.nameOf(sender) + ", which is no querier");
  }
}

}  // namespace Sim
