// Any arguments are safe to parse as settings. Accepted values lie in their ranges and are
// consistent; printed as arguments, they are accepted again as the same values. A refusal has a
// reason. The same holds for a number that is read as the value of an option alone.
//
// Each line of the input is one argument; the text behind the first "=" of the first lines is tried
// as a number.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <fmt/format.h>

#include <Intake/IntakeSettings.h>
#include <Options/Options.h>
#include <Settings/SettingError.h>
#include <Settings/SettingRules.h>
#include <Settings/SettingText.h>
#include <CLI/CLI.hpp>

#include "Property.h"

namespace {

using Fuzz::property;
using Gmp::Igmp::QuerierConfig;
using Mox::Ptr;

using Arguments = std::vector<std::string>;
using Prefixes = std::vector<std::string>;

Arguments linesOf(std::string_view text) {
  Arguments lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

// One command line and its result.
struct Parsed {
  bool accepted = false;
  Ptr<QuerierConfig> config = Gmp::Igmp::querierConfigFactory("eth0");
  Ptr<Agent::IntakeConfig> intake = Mox::makePtr<Agent::IntakeConfig>("eth0");
  Ptr<Agent::IntakeProcessConfig> process = Mox::makePtr<Agent::IntakeProcessConfig>();
  Prefixes boundary;
};

// The options, which take longer to make than a command line to parse. The settings are new each
// time, in the place that the options know.
class CommandLine {
 public:
  CommandLine() { Igmpq::addSettings(app_, *settings_); }
  const Agent::QuerierSettings& parsed(Arguments arguments) {
    settings_.emplace();
    std::reverse(arguments.begin(), arguments.end());
    app_.parse(arguments);
    return *settings_;
  }

 private:
  std::optional<Agent::QuerierSettings> settings_{std::in_place};
  CLI::App app_;
};

// Made anew at times: the parser keeps a list of all options that it has ever met.
CommandLine& commandLine() {
  constexpr unsigned usesMost = 10'000;
  static std::optional<CommandLine> current;
  static unsigned uses = 0;
  if (uses++ % usesMost == 0) current.emplace();
  return *current;
}

Parsed parsed(const Arguments& arguments) {
  Parsed result;
  try {
    const Agent::QuerierSettings& settings = commandLine().parsed(arguments);
    settings.apply({.config = result.config, .intake = result.intake, .process = result.process});
    if (settings.boundary()) {
      for (const auto& [prefix, set] : settings.boundary()->boundary()) {
        result.boundary.push_back(prefix.stringValue());
      }
    }
    result.accepted = true;
  } catch (const CLI::Error& error) {
    property(*error.what() != '\0', "a refusal has a reason");
  }
  return result;
}

// Calls f(name, value) for each setting.
template <class F>
void forEachSetting(const QuerierConfig& config, F f) {
  QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (Agent::isSetting<decltype(row)>) {
      f(std::string_view(row.name), config.*row.member);
    }
  });
}

// Calls f(setting, value) for each setting of the intake.
template <class F>
void forEachIntakeSetting(const Parsed& parsed, F f) {
  for (const Agent::IntakeSetting& setting : Agent::intakeSettings) {
    const auto* attr = parsed.intake->type().attr(setting.attribute);
    if (attr != nullptr) {
      f(setting, attr->get(*parsed.intake));
    } else {
      f(setting, parsed.process->type().attr(setting.attribute)->get(*parsed.process));
    }
  }
}

template <class V>
std::string printed(V value) {
  if constexpr (std::is_same_v<V, bool>) return value ? "on" : "off";
  if constexpr (std::is_floating_point_v<V>) return fmt::format("{}", value);
  return std::to_string(static_cast<unsigned>(value));
}

Arguments printed(const Parsed& settings) {
  Arguments arguments;
  forEachSetting(*settings.config, [&](std::string_view name, auto value) {
    arguments.push_back(Agent::optionName(name) + "=" + printed(value));
  });
  forEachIntakeSetting(settings, [&](const Agent::IntakeSetting& setting, const auto& value) {
    arguments.push_back(Agent::optionName(setting.attribute) + "=" +
                        Agent::intakeText(setting, value));
  });
  for (const std::string& prefix : settings.boundary) arguments.push_back("--boundary=" + prefix);
  return arguments;
}

void requireRanges(const QuerierConfig& config) {
  forEachSetting(config, [](std::string_view name, auto value) {
    const Agent::SettingRule& rule = *Agent::settingRule(name);
    const auto number = static_cast<double>(value);
    property((number >= rule.least && number <= rule.most) || (number == 0.0 && rule.zero),
             std::string(name) + " lies in its range");
  });
  property(config.queryResponseInterval() < config.queryInterval(),
           "answers are due before the next query (RFC 3376 8.3)");
  property(config.querierVersion() == Gmp::Igmp::igmpVersion3 ||
               config.lastMemberQueryInterval() <= 25.5,
           "queries of the old versions can hold the last member query interval (RFC 2236 2.2)");
}

void requireIntakeRanges(const Parsed& settings) {
  forEachIntakeSetting(settings, [](const Agent::IntakeSetting& setting, const Mox::Value& value) {
    const auto* number = std::get_if<Mox::U64>(&value);
    property(number == nullptr || (*number >= setting.least && *number <= setting.most),
             std::string(setting.attribute) + " lies in its range");
  });
}

void trySettings(const Arguments& arguments) {
  const Parsed first = parsed(arguments);
  if (!first.accepted) return;
  requireRanges(*first.config);
  requireIntakeRanges(first);
  const Parsed again = parsed(printed(first));
  property(again.accepted, "accepted settings, printed, are accepted again");
  property(printed(again) == printed(first), "printed settings read the same");
}

std::optional<double> numberIn(const std::string& text, const Agent::NumberRange& range) {
  try {
    return Agent::optionNumber("--number", text, range);
  } catch (const Agent::SettingError& error) {
    property(*error.what() != '\0', "a refusal has a reason");
    return std::nullopt;
  }
}

void tryNumber(const std::string& text, const Agent::NumberRange& range) {
  const std::optional<double> number = numberIn(text, range);
  if (!number) return;
  property((*number >= range.least && *number <= range.most) || (*number == 0.0 && range.zero),
           "a number that is accepted lies in its range");
  property(!range.whole || *number == std::floor(*number), "a number of a whole range is whole");
  const std::string again = range.whole ? fmt::format("{:.0f}", *number) : fmt::to_string(*number);
  property(numberIn(again, range) == number, "a number that is printed reads the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Arguments arguments = linesOf({reinterpret_cast<const char*>(data), size});
  trySettings(arguments);
  constexpr std::size_t numbersMost = 4;  // each refusal is an exception, which takes long
  for (const std::string& argument :
       std::span(arguments).first(std::min(arguments.size(), numbersMost))) {
    const std::string number = argument.substr(argument.find('=') + 1);
    tryNumber(number, {.least = -1e300, .most = 1e300});
    tryNumber(number, {.least = -1e15, .most = 1e15, .whole = true});
    tryNumber(number, {.least = 0.25, .most = 1024, .zero = "nothing"});
  }
  return 0;
}
