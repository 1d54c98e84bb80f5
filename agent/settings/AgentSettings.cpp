#include <Settings/AgentSettings.h>

#include <algorithm>
#include <type_traits>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Settings/SettingError.h>
#include <Settings/SettingText.h>

namespace Agent {

namespace {

void checkChoice(const AgentSetting& setting, std::string_view shown, std::string_view text) {
  if (setting.choices.empty() ||
      std::ranges::find(setting.choices, text) != setting.choices.end()) {
    return;
  }
  throw SettingError(std::string(shown), std::string(text),
                     fmt::format("must be one of {}", fmt::join(setting.choices, ", ")));
}

}  // namespace

const AgentSetting* agentSetting(std::string_view name) {
  const auto* const found = std::ranges::find(agentSettings, name, &AgentSetting::name);
  return found == agentSettings.end() ? nullptr : found;
}

void agentSettingIs(AgentSettings& settings, const AgentSetting& setting, std::string_view shown,
                    std::string_view text) {
  const auto set = [&](auto member) {
    using V = std::remove_reference_t<decltype(settings.*member)>;
    if constexpr (std::is_same_v<V, std::string>) {
      checkChoice(setting, shown, text);
      settings.*member = text;
    } else if constexpr (std::is_same_v<V, bool>) {
      settings.*member = flagOf(shown, text);
    } else {
      const double number = optionNumber(shown, text, setting.range);
      if constexpr (std::is_same_v<V, Mox::Seconds>) {
        settings.*member = number;
      } else {
        settings.*member = static_cast<Mox::U64>(number);
      }
    }
  };
  std::visit(set, setting.member);
}

std::string agentSettingText(const AgentSettings& settings, const AgentSetting& setting) {
  const auto text = [&](auto member) -> std::string {
    const auto& value = settings.*member;
    using V = std::remove_cvref_t<decltype(value)>;
    if constexpr (std::is_same_v<V, std::string>) return value;
    if constexpr (std::is_same_v<V, bool>) return value ? "on" : "off";
    if constexpr (std::is_same_v<V, std::optional<Mox::U64>>) {
      return value ? fmt::to_string(*value) : "";
    } else {
      return fmt::format("{}", value);
    }
  };
  return std::visit(text, setting.member);
}

}  // namespace Agent
