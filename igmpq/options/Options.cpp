#include <Options/Options.h>

#include <type_traits>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <Intake/IntakeSettings.h>
#include <Mox/TypeInfo.h>
#include <Settings/SettingError.h>
#include <Settings/SettingRules.h>
#include <Settings/SettingText.h>
#include <CLI/Error.hpp>

namespace Igmpq {

using Agent::QuerierSettings;
using Gmp::Igmp::QuerierConfig;

namespace {

// Calls f with an error of a setting made one of the command line.
template <class F>
void asOption(F f) {
  try {
    f();
  } catch (const Agent::SettingError& error) {
    throw CLI::ValidationError(error.subject(), error.reason());
  }
}

template <class V>
constexpr const char* valueNameOf() {
  if constexpr (std::is_same_v<V, bool>) return "on|off";
  if constexpr (std::is_same_v<V, Gmp::Igmp::IgmpVersion>) return "1|2|3";
  if constexpr (std::is_same_v<V, Mox::Seconds>) return "SECONDS";
  return "N";
}

const char* valueNameOf(Agent::IntakeValue value) {
  switch (value) {
    case Agent::IntakeValue::flag: return "on|off";
    case Agent::IntakeValue::number: return "N";
    case Agent::IntakeValue::prefixes: return "PREFIXES";
  }
  return "";
}

template <class V>
std::string defaultText(const V& value) {
  if constexpr (std::is_same_v<V, bool>) return value ? "on" : "off";
  if constexpr (std::is_same_v<V, Mox::Seconds>) return fmt::format("{}", value);
  return fmt::to_string(static_cast<Mox::U32>(value));
}

CLI::Option* addSetting(CLI::App& app, QuerierSettings& settings, std::string_view attribute,
                        const char* help) {
  const auto take = [&settings, attribute](const std::string& text) {
    asOption([&] { settings.add(attribute, text); });
  };
  return app.add_option_function<std::string>(Agent::optionName(attribute), take, help);
}

void addIntakeSettings(CLI::App& app, QuerierSettings& settings) {
  const auto ofInterface = Mox::makePtr<Agent::IntakeConfig>("");
  const auto ofProcess = Mox::makePtr<Agent::IntakeProcessConfig>();
  for (const Agent::IntakeSetting& setting : Agent::intakeSettings) {
    const auto* const attr = ofInterface->type().attr(setting.attribute);
    const Mox::Value value = attr != nullptr
                                 ? attr->get(*ofInterface)
                                 : ofProcess->type().attr(setting.attribute)->get(*ofProcess);
    addSetting(app, settings, setting.attribute, setting.help)
        ->type_name(valueNameOf(setting.value))
        ->default_str(Agent::intakeText(setting, value))
        ->group(intakeGroup);
  }
}

void addBoundary(CLI::App& app, QuerierSettings& settings) {
  const auto take = [&settings](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) {
      asOption([&] { settings.boundaryAdd(text); });
    }
  };
  app.add_option_function<std::vector<std::string>>(
         "--boundary", take, "groups that are neither learned nor queried; may be repeated")
      ->type_name("PREFIX")
      ->allow_extra_args(false);
}

}  // namespace

CLI::Option* addNumber(CLI::App& app, const std::string& name, const std::string& valueName,
                       const Agent::NumberRange& range, const std::string& help,
                       std::function<void(double)> take) {
  const auto read = [name, range, take = std::move(take)](const std::string& text) {
    asOption([&] { take(Agent::optionNumber(name, text, range)); });
  };
  return app.add_option_function<std::string>(name, read, help)->type_name(valueName);
}

void addSettings(CLI::App& app, QuerierSettings& settings) {
  const auto defaults = Gmp::Igmp::querierConfigFactory("");
  QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (Agent::isSetting<decltype(row)>) {
      using V = std::remove_cvref_t<decltype((*defaults).*row.member)>;
      addSetting(app, settings, row.name, Agent::settingRule(row.name)->help)
          ->type_name(valueNameOf<V>())
          ->default_str(defaultText((*defaults).*row.member));
    }
  });
  addSetting(app, settings, Agent::immediateLeave,
             "whether a group ends when a host leaves: a last member query count of 0")
      ->type_name("on|off");
  addBoundary(app, settings);
  addIntakeSettings(app, settings);
  app.set_help_all_flag("--help-all", "Print this help message with the options of the intake");
  app.parse_complete_callback([&settings] { asOption([&] { settings.check(); }); });
}

}  // namespace Igmpq
