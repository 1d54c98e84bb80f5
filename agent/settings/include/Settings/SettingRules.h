// The ranges of the querier configuration and the help texts of its options: exactly one rule for
// each stored attribute of QuerierConfig.
#pragma once

#include <array>
#include <string_view>
#include <type_traits>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Mox/AttrTable.h>
#include <Settings/OptionNumber.h>

namespace Agent {

struct SettingRule {
  std::string_view attribute;
  double least;
  double most;
  const char* zero;       // the meaning of a 0 that is allowed outside the range; null if it is not
  const char* reference;  // null for a setting that is in no RFC
  const char* help;
};

// A query carries its times in a byte: 31744 is the largest interval that it can name, 3174.4
// seconds the longest response time (RFC 3376 4.1.1, 4.1.7).
inline constexpr std::array settingRules{
    SettingRule{"robustness", 1, 7, nullptr, "RFC 3376 8.1", "expected loss of the link"},
    SettingRule{"queryInterval", 1, 31744, nullptr, "RFC 3376 8.2", "time between general queries"},
    SettingRule{"queryResponseInterval", 0.1, 3174.4, nullptr, "RFC 3376 8.3",
                "time for the answers to a general query"},
    SettingRule{"startupQueryInterval", 1, 31744, "a quarter of the query interval", "RFC 3376 8.6",
                "time between the first general queries"},
    SettingRule{"startupQueryCount", 1, 255, nullptr, "RFC 3376 8.7",
                "general queries sent at that interval"},
    SettingRule{"lastMemberQueryInterval", 0.1, 3174.4, nullptr, "RFC 3376 8.8",
                "time between specific queries"},
    SettingRule{"querierVersion", 1, 3, nullptr, "RFC 3376 7", "version that the querier speaks"},
    SettingRule{"lastMemberQueryCount", 0, 255, nullptr, "RFC 3376 8.9",
                "specific queries sent after a leave"},
    SettingRule{"addRandomDelayToTimer", 0, 1, nullptr, nullptr,
                "whether query timers are to have a random delay"},
    SettingRule{"sendQuery", 0, 1, nullptr, "RFC 3376 6.6.2", "whether queries may be sent"},
};

// The versions before 3 name the response time in tenths of a second, in the same byte (RFC
// 2236 2.2).
inline constexpr double oldLastMemberIntervalMost = 25.5;

inline NumberRange rangeOf(const SettingRule& rule, bool whole = false) {
  return {rule.least, rule.most, whole, rule.zero, rule.reference};
}

// The rule of an attribute; null when there is none.
constexpr const SettingRule* settingRule(std::string_view attribute) {
  for (const SettingRule& rule : settingRules) {
    if (rule.attribute == attribute) return &rule;
  }
  return nullptr;
}

// Whether there is such a rule. With sanitizers, g++ rejects the address of a rule in a constant.
constexpr bool hasRule(std::string_view attribute) {
  bool found = false;
  for (const SettingRule& rule : settingRules) found = found || rule.attribute == attribute;
  return found;
}

template <class Row>
inline constexpr bool isSetting = std::remove_cvref_t<Row>::kind == Mox::AttrKind::stored;

consteval bool everySettingHasItsRule() {
  size_t settings = 0;
  bool all = true;
  Gmp::Igmp::QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (isSetting<decltype(row)>) {
      ++settings;
      all = all && hasRule(row.name);
    }
  });
  return all && settings == settingRules.size();
}
static_assert(everySettingHasItsRule());

}  // namespace Agent
