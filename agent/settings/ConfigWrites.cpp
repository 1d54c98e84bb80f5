#include <Settings/ConfigWrites.h>

#include <cmath>
#include <set>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include <Intake/IntakeSettings.h>
#include <Mox/TypeInfo.h>
#include <Settings/SettingEntities.h>
#include <Settings/SettingRules.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;
using Mox::NboAttrLog::Written;

namespace {

using Given = std::set<std::string_view>;  // attributes that are to be set

double numberOf(const Mox::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? 1.0 : 0.0;
  if (const auto* number = std::get_if<Mox::U64>(&value)) return static_cast<double>(*number);
  if (const auto* seconds = std::get_if<double>(&value)) return *seconds;
  return NAN;
}

// Every attribute that can be set has a rule.
std::optional<SettingError> rangeErrorOf(const Written& setting) {
  const double number = numberOf(setting.value);
  const NumberRange range = rangeOf(*settingRule(setting.attr->name));
  if (fits(number, range)) return std::nullopt;
  return SettingError(setting.attr->name, fmt::to_string(number), mustText(range));
}

std::optional<SettingError> intervalErrorOf(const QuerierConfig& config, const Given& given) {
  const double response = config.queryResponseInterval();
  const double interval = config.queryInterval();
  if (response < interval) return std::nullopt;
  if (given.contains("queryResponseInterval")) {
    return SettingError(
        "queryResponseInterval", fmt::to_string(response),
        fmt::format("must be less than the query interval, {} seconds (RFC 3376 8.3)", interval));
  }
  return SettingError(
      "queryInterval", fmt::to_string(interval),
      fmt::format("must be more than the query response interval, {} seconds (RFC 3376 8.3)",
                  response));
}

std::optional<SettingError> lastMemberErrorOf(const QuerierConfig& config) {
  const double interval = config.lastMemberQueryInterval();
  const auto version = static_cast<unsigned>(config.querierVersion());
  if (version == 3 || interval <= oldLastMemberIntervalMost) return std::nullopt;
  return SettingError("lastMemberQueryInterval", fmt::to_string(interval),
                      fmt::format("must be from {} to {} in version {} (RFC 2236 2.2)",
                                  settingRule("lastMemberQueryInterval")->least,
                                  oldLastMemberIntervalMost, version));
}

// Another configuration with the same values, to try the new ones on.
Mox::Ptr<QuerierConfig> copyOf(const QuerierConfig& config) {
  Mox::Ptr<QuerierConfig> same = Gmp::Igmp::querierConfigFactory(config.name());
  copySettings(config, *same);
  return same;
}

// No two settings of an intake contradict each other.
std::string intakeRefusalOf(std::span<const Written> values) {
  for (const Written& setting : values) {
    const auto reason = refusalReason(*setting.attr, setting.value);
    if (reason) return fmt::format("{}: {}", setting.attr->name, *reason);
  }
  return {};
}

}  // namespace

std::vector<SettingError> settingErrorsOf(const QuerierConfig& config,
                                          std::span<const Written> values) {
  std::vector<SettingError> errors;
  const auto add = [&](const std::optional<SettingError>& error) {
    if (error) errors.push_back(*error);
  };
  for (const Written& setting : values) add(rangeErrorOf(setting));
  if (!errors.empty()) return errors;
  const auto after = copyOf(config);
  Given given;
  for (const auto& [attr, value] : values) {
    attr->set(*after, value);
    given.insert(attr->name);
  }
  add(intervalErrorOf(*after, given));
  add(lastMemberErrorOf(*after));
  return errors;
}

std::optional<SettingError> settingErrorOf(const QuerierConfig& config,
                                           std::span<const Written> values) {
  std::vector<SettingError> errors = settingErrorsOf(config, values);
  if (errors.empty()) return std::nullopt;
  return std::move(errors.front());
}

std::string whyConfigRefused(const Mox::EntityBase& config, std::span<const Written> values) {
  if (config.type().name != std::string_view(QuerierConfig::entityTypeName)) {
    return intakeRefusalOf(values);
  }
  const auto error = settingErrorOf(static_cast<const QuerierConfig&>(config), values);
  return error ? error->what() : std::string();
}

}  // namespace Agent
