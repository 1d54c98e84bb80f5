// All settings that the command line and the files of an agent give together, each with its origin:
// the command line wins over the files, and these win over the defaults.
//
//   const Configuration files = Configuration::read(path);
//   const ConfiguredAgent agent = configuredAgent(&files, commandLine, names);
//   for (const auto& [name, interface] : agent.interfaces) ...
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <Config/Configuration.h>
#include <Config/SettingOrigin.h>
#include <Settings/AgentSettings.h>
#include <Settings/SettingEntities.h>

namespace Agent {

// What a command line gives of it.
struct GivenSettings {
  std::vector<Mox::NboAttrLog::Written> settings;  // of each interface, or of all together
  std::optional<std::set<Ilvo::IpGenPrefix>> boundary;
  std::vector<std::pair<const AgentSetting*, std::string>> agent;
};

// The key under which origins have the boundary, which is no attribute.
inline constexpr const char* boundaryKey = "boundary";

struct ConfiguredInterface {
  std::string name;
  SettingEntities values;  // its own; not those of all interfaces
  std::set<Ilvo::IpGenPrefix> boundary;
  SettingOrigins origins;  // by attribute
};

struct ConfiguredAgent {
  std::vector<std::string> names;  // of the interfaces, in the order of the configuration
  std::map<std::string, ConfiguredInterface, std::less<>> interfaces;
  SettingEntities values;  // those of all interfaces together
  AgentSettings agent;
  SettingOrigins origins;  // of these, by attribute; of `agent`, by key
};

// Null for no files. Throws ConfigError for values that contradict
// each other, though each is right by itself.
ConfiguredAgent configuredAgent(const Configuration* files, const GivenSettings& given,
                                const std::vector<std::string>& names);

// Why an interface cannot have these values beside those that it has, in the words of a file and
// with the places of the values; empty when it can.
std::vector<ConfigFault> contradictionsOf(const ConfiguredInterface& wanted,
                                          const Gmp::Igmp::QuerierConfig& present,
                                          std::span<const Mox::NboAttrLog::Written> values);

}  // namespace Agent
