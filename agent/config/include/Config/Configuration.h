// The configuration: what the files say of each interface and of the agent.
//
// A section [[interface]] is of one interface or of those that its pattern (a glob) matches; an
// interface has the section of its own name, else the first whose pattern matches. [defaults] holds
// for every interface, as far as its section does not say otherwise.
//
//   const Configuration configuration = Configuration::read("/etc/igmpq/igmpq.toml");
//   for (const std::string& name : configuration.interfacesAmong(present)) {
//     const ResolvedSettings settings = configuration.settingsOf(name);
//   }
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <Config/ConfigFault.h>
#include <Ilvo/IpPrefix.h>
#include <NboAttrLog/TreeIn.h>
#include <Settings/AgentSettings.h>

namespace Agent {

struct PlacedSetting {
  Mox::NboAttrLog::Written written;
  std::string key;
  std::string text;
  ConfigPlace place;
};

struct PlacedBoundary {
  std::set<Ilvo::IpGenPrefix> prefixes;
  ConfigPlace place;
};

struct ResolvedSettings {
  std::vector<PlacedSetting> settings;
  std::optional<PlacedBoundary> boundary;
};

class Configuration {
 public:
  // The file and the files conf.d/*.toml beside it. Throws ConfigError with the first fault of
  // syntax or with all faults of content.
  static Configuration read(const std::filesystem::path& file);

  // The interfaces named exactly, present or not, and those present that a pattern matches: in the
  // order of the sections, each once.
  std::vector<std::string> interfacesAmong(const std::vector<std::string>& present) const;
  // Empty for an interface that no section is of.
  ResolvedSettings settingsOf(std::string_view interface) const;
  bool namesInterfaces() const { return !sections_.empty(); }

  const AgentSettings& agent() const { return agent_; }
  // The places of those of them that the files give, by key.
  const std::map<std::string, ConfigPlace, std::less<>>& agentPlaces() const {
    return agentPlaces_;
  }
  // Of the limits of all interfaces together.
  const std::vector<PlacedSetting>& process() const { return process_; }

 private:
  friend class ConfigurationReader;

  struct Section {
    std::string pattern;
    ConfigPlace place;
    ResolvedSettings own;
  };
  const Section* sectionOf(std::string_view interface) const;
  static bool isPattern(std::string_view name);

  ResolvedSettings defaults_;
  std::vector<Section> sections_;
  std::map<std::string, size_t, std::less<>> sectionAt_;  // by the name or pattern
  AgentSettings agent_;
  std::map<std::string, ConfigPlace, std::less<>> agentPlaces_;
  std::vector<PlacedSetting> process_;
};

}  // namespace Agent
