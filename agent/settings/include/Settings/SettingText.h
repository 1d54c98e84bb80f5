// Settings of a querier as people write them, and what of them does not go together.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>

#include <fmt/format.h>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <CLI/CLI.hpp>

#include <Settings/SettingRules.h>

namespace Agent {

// Reads a value of one setting, which errors call by the name it was given under. Throws
// CLI::ValidationError, with a text such as "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)".
template <class V>
V settingOf(std::string_view name, const SettingRule& rule, std::string_view text) {
  if constexpr (std::is_same_v<V, bool>) {
    if (text == "on") return true;
    if (text == "off") return false;
    throw CLI::ValidationError(fmt::format("{} {}", name, text), "must be on or off");
  } else {
    constexpr bool whole = !std::is_same_v<V, Mox::Seconds>;
    const double number = optionNumber(name, text, rangeOf(rule, whole));
    if constexpr (whole) return static_cast<V>(static_cast<Mox::U32>(number));
    return static_cast<V>(number);
  }
}

// Another configuration with the same values, to try what others would make of it.
Mox::Ptr<Gmp::Igmp::QuerierConfig> copyOf(const Gmp::Igmp::QuerierConfig& config);

// Two values that are each in their range and do not go together.
struct Contradiction {
  std::string_view attribute;  // the one to blame
  std::string value;
  std::string why;
};

// The first one in a configuration. Of two values the one that was `given` is to blame.
std::optional<Contradiction> contradictionOf(const Gmp::Igmp::QuerierConfig& config,
                                             const std::set<std::string_view>& given);

}  // namespace Agent
