// The settings of a router that stories change, by name as in its configuration.
#pragma once

#include <array>
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>

#include "Frame.h"

namespace Sim {

struct Settings {
  double version = 3;
  double queryInterval = 20;
  double queryResponseInterval = 5;
  double robustness = 2;
  double startupQueryCount = 2;
  double startupQueryInterval = 5;
  double lastMemberQueryInterval = 1;
  double lastMemberQueryCount = 2;
  double sendQuery = 1;

  Seconds otherQuerierPresentInterval() const {
    return robustness * queryInterval + queryResponseInterval / 2;
  }
  Seconds groupMembershipInterval() const {
    return robustness * queryInterval + queryResponseInterval;
  }
  Seconds lastMemberQueryTime() const { return lastMemberQueryCount * lastMemberQueryInterval; }

  // Null for a name that no setting has.
  double* find(const std::string& name);
  void applyTo(Gmp::Igmp::QuerierConfig& config) const;

  friend bool operator==(const Settings&, const Settings&) = default;
};

struct SettingName {
  const char* name;
  double Settings::*member;
};
inline constexpr std::array settingNames{
    SettingName{"version", &Settings::version},
    SettingName{"queryInterval", &Settings::queryInterval},
    SettingName{"queryResponseInterval", &Settings::queryResponseInterval},
    SettingName{"robustness", &Settings::robustness},
    SettingName{"startupQueryCount", &Settings::startupQueryCount},
    SettingName{"startupQueryInterval", &Settings::startupQueryInterval},
    SettingName{"lastMemberQueryInterval", &Settings::lastMemberQueryInterval},
    SettingName{"lastMemberQueryCount", &Settings::lastMemberQueryCount},
    SettingName{"sendQuery", &Settings::sendQuery}};

}  // namespace Sim
