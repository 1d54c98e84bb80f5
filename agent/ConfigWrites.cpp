#include <Agent/ConfigWrites.h>

#include <cmath>

#include <fmt/format.h>

#include "SettingRules.h"

namespace Agent {

namespace {

double numberOf(const Mox::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? 1.0 : 0.0;
  if (const auto* number = std::get_if<Mox::U64>(&value)) return static_cast<double>(*number);
  if (const auto* seconds = std::get_if<double>(&value)) return *seconds;
  return NAN;
}

}  // namespace

std::string whyConfigRefused(const Mox::AttrInfo& attr, const Mox::Value& value) {
  const SettingRule* rule = settingRule(attr.name);
  if (rule == nullptr) return fmt::format("{} cannot be set", attr.name);
  const double number = numberOf(value);
  if (rule->zero != nullptr && number == 0.0) return {};
  if (number >= rule->least && number <= rule->most) return {};
  return fmt::format("{} {}: must be {}from {} to {} ({})", attr.name, number,
                     rule->zero == nullptr ? "" : fmt::format("0 ({}) or ", rule->zero),
                     rule->least, rule->most, rule->reference);
}

}  // namespace Agent
