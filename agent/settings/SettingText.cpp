#include <Settings/SettingText.h>

#include <type_traits>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <Mox/AttrValue.h>
#include <Mox/TypeInfo.h>
#include <Settings/SettingError.h>
#include <Settings/SettingRules.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;
using Mox::NboAttrLog::Written;

namespace {

template <class V>
V settingOf(std::string_view name, const SettingRule& rule, std::string_view text) {
  if constexpr (std::is_same_v<V, bool>) {
    if (text == "on") return true;
    if (text == "off") return false;
    throw SettingError(std::string(name), std::string(text), "must be on or off");
  } else {
    constexpr bool whole = !std::is_same_v<V, Mox::Seconds>;
    const double number = optionNumber(name, text, rangeOf(rule, whole));
    if constexpr (whole) return static_cast<V>(static_cast<Mox::U32>(number));
    return static_cast<V>(number);
  }
}

}  // namespace

std::string optionName(std::string_view attribute) {
  std::string name = "--";
  for (const char c : attribute) {
    const bool upper = c >= 'A' && c <= 'Z';
    if (upper) name += '-';
    name += upper ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return name;
}

Written readSetting(std::string_view attribute, std::string_view name, std::string_view text) {
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
