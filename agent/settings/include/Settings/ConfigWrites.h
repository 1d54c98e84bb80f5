// Checks values before they are set in a configuration, whether they come from the command line,
// from `igmpq set` or from another process.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Mox/Entity.h>
#include <NboAttrLog/TreeIn.h>
#include <Settings/SettingError.h>

namespace Agent {

// Each reason why values cannot be set together, for instance "queryInterval 0: must be from 1
// to 31744 (RFC 3376 8.2)". The configuration itself takes any value, and with some a timer would
// fire without pause. Each value must be in its range, and no two values of the resulting
// configuration may contradict each other; if two do, the reason names the one that is to be set.
std::vector<SettingError> settingErrorsOf(const Gmp::Igmp::QuerierConfig& config,
                                          std::span<const Mox::NboAttrLog::Written> values);

// The first of them.
std::optional<SettingError> settingErrorOf(const Gmp::Igmp::QuerierConfig& config,
                                           std::span<const Mox::NboAttrLog::Written> values);

// The same for values that another process writes into any configuration of SettingEntities.h, as a
// text; empty when they may be set. The writer checked them against its own copy, which may be out
// of date.
std::string whyConfigRefused(const Mox::EntityBase& config,
                             std::span<const Mox::NboAttrLog::Written> values);

}  // namespace Agent
