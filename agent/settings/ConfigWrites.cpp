#include <Settings/ConfigWrites.h>

#include <cmath>

#include <fmt/format.h>

#include <Settings/SettingRules.h>
#include <Settings/SettingText.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;
using Mox::NboAttrLog::Written;

namespace {

double numberOf(const Mox::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? 1.0 : 0.0;
  if (const auto* number = std::get_if<Mox::U64>(&value)) return static_cast<double>(*number);
  if (const auto* seconds = std::get_if<double>(&value)) return *seconds;
  return NAN;
}

std::string whyOutOfRange(const Mox::AttrInfo& attr, const Mox::Value& value) {
  const SettingRule* rule = settingRule(attr.name);
  if (rule == nullptr) return fmt::format("{} cannot be set", attr.name);
  const double number = numberOf(value);
  const NumberRange range = rangeOf(*rule);
  if (fits(number, range)) return {};
  return fmt::format("{} {}: {}", attr.name, number, mustText(range));
}

std::string whyContradicted(const QuerierConfig& config, std::span<const Written> values) {
  const auto after = copyOf(config);
  std::set<std::string_view> given;
  for (const auto& [attr, value] : values) {
    attr->set(*after, value);
    given.insert(attr->name);
  }
  const auto found = contradictionOf(*after, given);
  return found ? fmt::format("{} {}: {}", found->attribute, found->value, found->why)
               : std::string();
}

}  // namespace

std::string whyConfigRefused(const Mox::EntityBase& config, std::span<const Written> values) {
  for (const auto& [attr, value] : values) {
    std::string refused = whyOutOfRange(*attr, value);
    if (!refused.empty()) return refused;
  }
  return whyContradicted(static_cast<const QuerierConfig&>(config), values);
}

}  // namespace Agent
