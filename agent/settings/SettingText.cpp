#include <Settings/SettingText.h>

#include <type_traits>

#include <fmt/format.h>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/IntakeSettings.h>
#include <Mox/AttrValue.h>
#include <Mox/Errors.h>
#include <Mox/TypeInfo.h>
#include <Settings/SettingError.h>
#include <Settings/SettingRules.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;
using Mox::NboAttrLog::Written;

bool flagOf(std::string_view name, std::string_view text) {
  if (text == "on") return true;
  if (text == "off") return false;
  throw SettingError(std::string(name), std::string(text), "must be on or off");
}

namespace {

template <class V>
V settingOf(std::string_view name, const SettingRule& rule, std::string_view text) {
  if constexpr (std::is_same_v<V, bool>) {
    return flagOf(name, text);
  } else {
    constexpr bool whole = !std::is_same_v<V, Mox::Seconds>;
    const double number = optionNumber(name, text, rangeOf(rule, whole));
    if constexpr (whole) return static_cast<V>(static_cast<Mox::U32>(number));
    return static_cast<V>(number);
  }
}

Written immediateLeaveOf(std::string_view name, std::string_view text) {
  const bool isOn = flagOf(name, text);
  const auto* const attr = Mox::typeInfoOf<QuerierConfig>().attr("lastMemberQueryCount");
  const auto defaults = Gmp::Igmp::querierConfigFactory("");
  return {.attr = attr, .value = isOn ? Mox::Value(Mox::U64{0}) : attr->get(*defaults)};
}

Written intakeSettingOf(const IntakeSetting& setting, std::string_view name,
                        std::string_view text) {
  const auto* attr = Mox::typeInfoOf<IntakeConfig>().attr(setting.attribute);
  if (attr == nullptr) attr = Mox::typeInfoOf<IntakeProcessConfig>().attr(setting.attribute);
  try {
    return {.attr = attr, .value = intakeValueOf(setting, text)};
  } catch (const Mox::RangeError& error) {
    throw SettingError(std::string(name), std::string(text), error.what());
  }
}

}  // namespace

std::vector<std::string_view> settingNames() {
  std::vector<std::string_view> names;
  names.reserve(std::size(settingRules) + 1 + std::size(intakeSettings));
  for (const SettingRule& rule : settingRules) names.push_back(rule.attribute);
  names.push_back(immediateLeave);
  for (const IntakeSetting& setting : intakeSettings) names.push_back(setting.attribute);
  return names;
}

std::string optionName(std::string_view attribute) { return "--" + settingKey(attribute); }

std::string settingKey(std::string_view attribute) {
  std::string name;
  for (const char c : attribute) {
    const bool upper = c >= 'A' && c <= 'Z';
    if (upper) name += '-';
    name += upper ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return name;
}

std::string settingValueText(const Mox::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "on" : "off";
  if (const auto* number = std::get_if<Mox::U64>(&value)) return fmt::to_string(*number);
  if (const auto* seconds = std::get_if<Mox::Seconds>(&value)) return fmt::format("{}s", *seconds);
  const auto* text = std::get_if<std::string>(&value);
  return text == nullptr || text->empty() ? "all" : *text;
}

Written readSetting(std::string_view attribute, std::string_view name, std::string_view text) {
  if (attribute == immediateLeave) return immediateLeaveOf(name, text);
  if (const auto* setting = intakeSetting(attribute)) return intakeSettingOf(*setting, name, text);
  Written setting{};
  QuerierConfig::attributes.forEach([&](Mox::AttrId id, const auto& row) {
    if constexpr (isSetting<decltype(row)>) {
      if (attribute != row.name) return;
      using V = std::remove_cvref_t<decltype(std::declval<QuerierConfig&>().*row.member)>;
      setting.attr = Mox::typeInfoOf<QuerierConfig>().attr(id);
      setting.value = Mox::valueFrom(settingOf<V>(name, *settingRule(row.name), text));
    }
  });
  return setting;
}

}  // namespace Agent
