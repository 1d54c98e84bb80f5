#include <Options/AgentOptions.h>

#include <variant>

#include <fmt/format.h>

#include <Local/AttrLogSocket.h>
#include <Settings/SettingError.h>
#include <CLI/Error.hpp>

namespace Igmpq {

using Agent::AgentSetting;
using Agent::AgentSettings;

namespace {

std::string optionOf(const AgentSetting& setting) { return fmt::format("--{}", setting.name); }

bool isFlag(const AgentSetting& setting) {
  return std::holds_alternative<bool AgentSettings::*>(setting.member);
}

// The help shows it behind the name of the value, or, where it is no value, behind the words.
std::string defaultOf(const AgentSetting& setting) {
  const bool isSocket = setting.name == "socket";
  return isSocket ? Agent::attrLogSocketPath() : Agent::agentSettingText({}, setting);
}

std::string helpOf(const AgentSetting& setting) {
  const bool isSaid = !defaultOf(setting).empty() || setting.unset[0] == '\0';
  return isSaid ? setting.help : fmt::format("{} ({})", setting.help, setting.unset);
}

}  // namespace

void AgentOptions::addTo(CLI::App& app) {
  for (const AgentSetting& setting : Agent::agentSettings) {
    if (isFlag(setting)) {
      app.add_flag_callback(
          optionOf(setting), [this, &setting] { take(setting, "on"); }, setting.help);
      continue;
    }
    const auto read = [this, &setting](const std::string& text) { take(setting, text); };
    app.add_option_function<std::string>(optionOf(setting), read, helpOf(setting))
        ->type_name(setting.valueName)
        ->default_str(defaultOf(setting));
  }
}

void AgentOptions::take(const AgentSetting& setting, const std::string& text) {
  try {
    AgentSettings scratch;
    agentSettingIs(scratch, setting, optionOf(setting), text);
  } catch (const Agent::SettingError& error) {
    throw CLI::ValidationError(error.subject(), error.reason());
  }
  given_.emplace_back(&setting, text);
}

}  // namespace Igmpq
