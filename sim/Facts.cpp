#include "Facts.h"

namespace Sim {

void Bounds::add(const Settings& settings) {
  for (const SettingName& each : settingNames) {
    most_.*each.member = std::max(most_.*each.member, settings.*each.member);
  }
  leastResponse_ = std::min(leastResponse_, settings.queryResponseInterval);
  leastRobustness_ =
      std::min({leastRobustness_, settings.robustness, settings.lastMemberQueryCount});
}

bool Facts::isWhole() const {
  // Half a response interval is what a query may be late (RFC 3376 8.5).
  return !isCut && lan->longestDelay() < bounds.leastResponse() / 2 &&
         std::ranges::none_of(routers, &Router::isStopped) && Mox::now() > disturbed + settleTime();
}

Mask Facts::wanted() const {
  Mask all = 0;
  for (const Host& host : hosts) all |= host.wants(Mox::now());
  return all;
}

bool Facts::haveEqualSettings() const {
  return std::ranges::all_of(routers, [this](const auto& each) {
    return each->settings() == routers.front()->settings();
  });
}

bool Facts::haveEqualTimes() const {
  return haveEqualSettings() || std::ranges::all_of(routers, [](const auto& each) {
           return each->settings().version == 3;
         });
}

void Facts::breach(Invariant invariant, const std::string& text) {
  if (findings.breach) return;
  findings.breach = Breach{.invariant = invariant, .time = Mox::now() - begin, .text = text};
}

void Facts::known(Known rule) {
  const auto at = static_cast<size_t>(rule);
  ++findings.counts.known[at];
  if (findings.counts.knownSeed[at] == 0) findings.counts.knownSeed[at] = seed;
}

}  // namespace Sim
