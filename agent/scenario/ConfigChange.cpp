#include "ConfigChange.h"

#include <fmt/format.h>

#include "AttrValues.h"

namespace Agent::Scenario {

using Gmp::Igmp::QuerierConfig;

namespace {

ConfigChange readConfigChange(const std::string& name, const Json& json) {
  ConfigChange change;
  QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (requires(QuerierConfig & c) { (c.*row.set)(c.*row.member); }) {
      if (name != row.name) return;
      std::remove_cvref_t<decltype(std::declval<QuerierConfig&>().*row.member)> value{};
      fromJson(json, fmt::format("\"{}\"", name), value);
      change = [set = row.set, value](QuerierConfig& config) { (config.*set)(value); };
    }
  });
  if (!change) {
    throw StepError(fmt::format("a configuration has no attribute \"{}\" to be set", name));
  }
  return change;
}

}  // namespace

std::vector<ConfigChange> readConfigChanges(const Json& object, const char* key) {
  std::vector<ConfigChange> changes;
  for (const auto& [name, value] : objectOf(object, fmt::format("\"{}\"", key)).items()) {
    changes.push_back(readConfigChange(name, value));
  }
  return changes;
}

}  // namespace Agent::Scenario
