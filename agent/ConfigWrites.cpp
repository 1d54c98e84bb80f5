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
  const NumberRange range = rangeOf(*rule);
  if (fits(number, range)) return {};
  return fmt::format("{} {}: {}", attr.name, number, mustText(range));
}

}  // namespace Agent
