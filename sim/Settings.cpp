#include "Settings.h"

namespace Sim {

double* Settings::find(const std::string& name) {
  for (const SettingName& each : settingNames) {
    if (name == each.name) return &(this->*each.member);
  }
  return nullptr;
}

void Settings::applyTo(Gmp::Igmp::QuerierConfig& config) const {
  const auto whole = [](double v) { return static_cast<U32>(v); };
  config.robustnessIs(whole(robustness));
  config.lastMemberQueryCountIs(whole(lastMemberQueryCount));
  config.lastMemberQueryIntervalIs(lastMemberQueryInterval);
  config.startupQueryCountIs(whole(startupQueryCount));
  config.queryResponseIntervalIs(queryResponseInterval);
  config.startupQueryIntervalIs(startupQueryInterval);
  config.querierVersionIs(static_cast<Gmp::Igmp::IgmpVersion>(whole(version)));
  config.queryIntervalIs(queryInterval);
  config.sendQueryIs(sendQuery != 0);
}

}  // namespace Sim
