#include <Config/ConfiguredAgent.h>

#include <algorithm>

#include <fmt/format.h>

#include <Settings/ConfigWrites.h>
#include <Settings/SettingText.h>

namespace Agent {

using Mox::NboAttrLog::Written;

namespace {

void put(const SettingEntities& values, SettingOrigins& origins, const Written& written,
         SettingOrigin origin) {
  values.set(written);
  origins.insert_or_assign(written.attr->name, std::move(origin));
}

SettingOrigin inFile(const ConfigPlace& place) {
  return {.from = SettingOrigin::file, .place = place};
}

bool isOfAllInterfaces(const Written& setting) {
  return Mox::typeInfoOf<IntakeProcessConfig>().attr(setting.attr->name) != nullptr;
}

ConfiguredInterface configuredInterface(const Configuration* files, const GivenSettings& given,
                                        const std::string& name) {
  ConfiguredInterface interface {
    .name = name,
    .values = {.config = Gmp::Igmp::querierConfigFactory(name),
               .intake = Mox::makePtr<IntakeConfig>(name),
               .process = {}},
    .boundary = {}, .origins = {}
  };
  const auto boundaryIs = [&](const std::set<Ilvo::IpGenPrefix>& prefixes, SettingOrigin origin) {
    interface.boundary = prefixes;
    interface.origins.insert_or_assign(boundaryKey, std::move(origin));
  };
  if (files != nullptr) {
    const ResolvedSettings resolved = files->settingsOf(name);
    for (const PlacedSetting& setting : resolved.settings) {
      put(interface.values, interface.origins, setting.written, inFile(setting.place));
    }
    if (resolved.boundary) {
      boundaryIs(resolved.boundary->prefixes, inFile(resolved.boundary->place));
    }
  }
  for (const Written& setting : given.settings) {
    if (isOfAllInterfaces(setting)) continue;
    put(interface.values, interface.origins, setting, {.from = SettingOrigin::commandLine});
  }
  if (given.boundary) boundaryIs(*given.boundary, {.from = SettingOrigin::commandLine});
  return interface;
}

void readAgent(ConfiguredAgent& agent, const Configuration* files, const GivenSettings& given) {
  if (files != nullptr) {
    agent.agent = files->agent();
    for (const auto& [key, place] : files->agentPlaces()) {
      agent.origins.insert_or_assign(key, inFile(place));
    }
    for (const PlacedSetting& setting : files->process()) {
      put(agent.values, agent.origins, setting.written, inFile(setting.place));
    }
  }
  for (const auto& [setting, text] : given.agent) {
    agentSettingIs(agent.agent, *setting, setting->name, text);
    agent.origins.insert_or_assign(std::string(setting->name),
                                   SettingOrigin{.from = SettingOrigin::commandLine});
  }
  for (const Written& setting : given.settings) {
    if (!isOfAllInterfaces(setting)) continue;
    put(agent.values, agent.origins, setting, {.from = SettingOrigin::commandLine});
  }
}

// The values of a querier that are not the defaults.
std::vector<Written> givenTo(const ConfiguredInterface& interface) {
  std::vector<Written> values;
  const auto& config = *interface.values.config;
  for (const Mox::AttrInfo& attr : config.type().attrs) {
    if (attr.set == nullptr || !interface.origins.contains(attr.name)) continue;
    values.push_back({&attr, attr.get(config)});
  }
  return values;
}

}  // namespace

ConfiguredAgent configuredAgent(const Configuration* files, const GivenSettings& given,
                                const std::vector<std::string>& names) {
  ConfiguredAgent agent{
      .names = names,
      .interfaces = {},
      .values = {.config = {}, .intake = {}, .process = Mox::makePtr<IntakeProcessConfig>()},
      .agent = {},
      .origins = {}};
  readAgent(agent, files, given);
  std::vector<ConfigFault> faults;
  const auto defaults = Gmp::Igmp::querierConfigFactory("");
  for (const std::string& name : names) {
    const ConfiguredInterface& interface =
        agent.interfaces.emplace(name, configuredInterface(files, given, name)).first->second;
    for (ConfigFault& fault : contradictionsOf(interface, *defaults, givenTo(interface))) {
      // One line of a file may be of many interfaces.
      if (std::ranges::find(faults, fault.place, &ConfigFault::place) == faults.end()) {
        faults.push_back(std::move(fault));
      }
    }
  }
  if (!faults.empty()) throw ConfigError(std::move(faults));
  return agent;
}

std::vector<ConfigFault> contradictionsOf(const ConfiguredInterface& wanted,
                                          const Gmp::Igmp::QuerierConfig& present,
                                          std::span<const Written> values) {
  std::vector<ConfigFault> faults;
  for (const SettingError& error : settingErrorsOf(present, values)) {
    const SettingOrigin origin = originOf(wanted.origins, error.name());
    ConfigPlace place = origin.place;
    if (origin.from != SettingOrigin::file) place.file = originText(origin);
    faults.push_back(
        {.place = place,
         .what = fmt::format("{} {} on {}: {}", settingKey(error.name()),
                             error.value().value_or(""), wanted.name, error.reason())});
  }
  return faults;
}

}  // namespace Agent
