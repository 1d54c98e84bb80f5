#include <Config/ConfigExample.h>

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/IntakeSettings.h>
#include <Local/AttrLogSocket.h>
#include <Settings/AgentSettings.h>
#include <Settings/SettingRules.h>
#include <Settings/SettingText.h>

namespace Agent {

namespace {

constexpr std::string_view must = "must be ";

std::string rangeText(std::string text) {
  if (text.starts_with(must)) text.erase(0, must.size());
  return text;
}

// As a file writes it.
std::string valueText(const Mox::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
  if (const auto* seconds = std::get_if<Mox::Seconds>(&value)) return fmt::format("{}", *seconds);
  if (const auto* number = std::get_if<Mox::U64>(&value)) return fmt::to_string(*number);
  return "[]";  // a list of prefixes
}

std::string entry(std::string_view help, std::string_view range, std::string_view key,
                  std::string_view value) {
  return fmt::format("# {}:\n# {}\n#{} = {}\n\n", help, range, key, value);
}

std::string reference(const char* text) {
  return text == nullptr ? "" : fmt::format(" ({})", text);
}

std::string querierEntry(const SettingRule& rule) {
  const auto defaults = Gmp::Igmp::querierConfigFactory("");
  const Mox::Value value = defaults->type().attr(rule.attribute)->get(*defaults);
  const std::string range = std::holds_alternative<bool>(value)
                                ? "true or false" + reference(rule.reference)
                                : rangeText(mustText(rangeOf(rule)));
  const char* unit = std::holds_alternative<Mox::Seconds>(value) ? "seconds, " : "";
  return entry(rule.help, unit + range, settingKey(rule.attribute), valueText(value));
}

std::string intakeEntry(const IntakeSetting& setting, const Mox::EntityBase& defaults) {
  const auto range = [&]() -> std::string {
    switch (setting.value) {
      case IntakeValue::flag: return "true or false";
      case IntakeValue::number: return rangeText(mustText(setting));
      case IntakeValue::prefixes: return "IPv4 prefixes, none for no restriction";
    }
    return {};
  };
  return entry(setting.help, range() + reference(setting.reference), settingKey(setting.attribute),
               valueText(defaults.type().attr(setting.attribute)->get(defaults)));
}

std::string agentRange(const AgentSetting& setting) {
  if (std::holds_alternative<bool AgentSettings::*>(setting.member)) return "true or false";
  if (!std::holds_alternative<std::string AgentSettings::*>(setting.member)) {
    return rangeText(mustText(setting.range));
  }
  std::string choices;
  for (const std::string_view choice : setting.choices) {
    choices += fmt::format("{}\"{}\"", choices.empty() ? "" : ", ", choice);
  }
  if (!choices.empty()) return "one of " + choices;
  return *setting.unset == '\0' ? "a string, empty for the usual one" : "a string, empty for none";
}

const char* unitOf(const AgentSetting& setting) {
  if (std::holds_alternative<Mox::Seconds AgentSettings::*>(setting.member)) return "seconds, ";
  return setting.valueName == std::string_view("KIB") ? "KiB, " : "";
}

std::string agentEntry(const AgentSetting& setting) {
  std::string value = agentSettingText({}, setting);
  std::string range = unitOf(setting) + agentRange(setting);
  if (std::holds_alternative<std::string AgentSettings::*>(setting.member)) {
    value = '"' + value + '"';
  } else if (std::holds_alternative<bool AgentSettings::*>(setting.member)) {
    value = value == "on" ? "true" : "false";
  } else if (value.empty()) {
    value = setting.unset;
    value.resize(std::min(value.find(' '), value.size()));
    range += fmt::format("; without it {}", setting.unset);
  }
  if (setting.atStart) range += "; read at the start only";
  return entry(setting.help, range, setting.name, value);
}

}  // namespace

std::string configExample() {
  std::string text =
      "# The configuration of `igmpq run`, as igmpq.toml(5) describes it. Each key stands here "
      "with\n"
      "# its default; take its # away to change it. `igmpq check` reads the file and reports what "
      "is\n"
      "# wrong with it. Files in conf.d beside this one are read after it, by their names.\n\n"
      "[agent]\n\n";
  for (const AgentSetting& setting : agentSettings) text += agentEntry(setting);
  const auto process = Mox::makePtr<IntakeProcessConfig>();
  const auto intake = Mox::makePtr<IntakeConfig>("");
  for (const IntakeSetting& setting : intakeSettings) {
    if (process->type().attr(setting.attribute) != nullptr) text += intakeEntry(setting, *process);
  }
  text +=
      "# These hold for every interface, as far as its own section says nothing "
      "else.\n[defaults]\n\n";
  for (const SettingRule& rule : settingRules) text += querierEntry(rule);
  text += entry("whether a group ends when a host leaves, in place of last-member-query-count",
                "true or false", "immediate-leave", "false");
  text += entry("groups that are neither learned nor queried", "prefixes", "boundary", "[]");
  for (const IntakeSetting& setting : intakeSettings) {
    if (intake->type().attr(setting.attribute) != nullptr) text += intakeEntry(setting, *intake);
  }
  text +=
      "# A section for each interface, or for all that a pattern such as \"vlan*\" matches. All "
      "keys\n"
      "# of [defaults] may follow the name.\n"
      "#[[interface]]\n#name = \"eth0\"\n";
  return text;
}

}  // namespace Agent
