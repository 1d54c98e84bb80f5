// Judges values before they are set in a querier configuration, wherever they come from: the
// command line, `igmpq set`, or another process.
#pragma once

#include <optional>
#include <span>
#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Mox/Entity.h>
#include <NboAttrLog/TreeIn.h>
#include <Settings/SettingError.h>

namespace Agent {

// The first reason why values cannot be set together, for instance "queryInterval 0: must be from 1
// to 31744 (RFC 3376 8.2)". The configuration itself takes any value, and some would let timers
// spin. Each must be in its range, and with all of them the configuration must not contradict
// itself; of two values that do, the one that is to be set is named.
std::optional<SettingError> settingErrorOf(const Gmp::Igmp::QuerierConfig& config,
                                           std::span<const Mox::NboAttrLog::Written> values);

// The same for values that another process writes, as a text; empty when they may be set. A writer
// judged them by its own copy, which another writer may have made out of date.
std::string whyConfigRefused(const Mox::EntityBase& config,
                             std::span<const Mox::NboAttrLog::Written> values);

}  // namespace Agent
