#include <Config/Configuration.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fnmatch.h>
#include <net/if.h>

#include <Intake/IntakeSettings.h>
#include <Local/Accounts.h>
#include <Settings/ConfigWrites.h>
#include <Settings/SettingEntities.h>
#include <Settings/SettingError.h>
#include <Settings/SettingText.h>

#include "ConfigDocument.h"
#include "ConfigText.h"
#include "NearestName.h"

namespace Agent {

using Mox::NboAttrLog::Written;

namespace {

bool isOfProcess(const Written& setting) {
  return Mox::typeInfoOf<IntakeProcessConfig>().attr(setting.attr->name) != nullptr;
}

bool isOfQuerier(const Written& setting) {
  return Mox::typeInfoOf<Gmp::Igmp::QuerierConfig>().attr(setting.attr->name) != nullptr;
}

// An attribute as keys name it; empty for none.
std::string_view attributeOf(std::string_view key) {
  for (const std::string_view attribute : settingNames()) {
    if (settingKey(attribute) == key) return attribute;
  }
  return {};
}

ConfigKind kindOf(std::string_view attribute) {
  if (const IntakeSetting* intake = intakeSetting(attribute)) {
    switch (intake->value) {
      case IntakeValue::flag: return ConfigKind::flag;
      case IntakeValue::number: return ConfigKind::number;
      case IntakeValue::prefixes: return ConfigKind::list;
    }
  }
  const auto* const attr = Mox::typeInfoOf<Gmp::Igmp::QuerierConfig>().attr(attribute);
  if (attr == nullptr) return ConfigKind::flag;  // immediateLeave
  const Mox::Value value = attr->get(*Gmp::Igmp::querierConfigFactory(""));
  return std::holds_alternative<bool>(value) ? ConfigKind::flag : ConfigKind::number;
}

ConfigKind kindOf(const AgentSetting& setting) {
  if (std::holds_alternative<std::string AgentSettings::*>(setting.member)) {
    return ConfigKind::text;
  }
  return std::holds_alternative<bool AgentSettings::*>(setting.member) ? ConfigKind::flag
                                                                       : ConfigKind::number;
}

const char* formOf(ConfigKind kind) {
  switch (kind) {
    case ConfigKind::flag: return "must be true or false";
    case ConfigKind::number: return "must be a number, without quotes";
    case ConfigKind::text: return "must be a string";
    case ConfigKind::list: return "must be a list of prefixes, such as [\"10.0.0.0/8\"]";
  }
  return "";
}

// The value replaces one of the same attribute.
void put(std::vector<PlacedSetting>& settings, PlacedSetting setting) {
  const auto same = std::ranges::find_if(settings, [&](const PlacedSetting& each) {
    return each.written.attr == setting.written.attr;
  });
  if (same == settings.end()) {
    settings.push_back(std::move(setting));
  } else {
    *same = std::move(setting);
  }
}

// Empty where the setting names no account, or one of this machine.
std::string unknownAccount(const AgentSetting& setting, const std::string& name) {
  if (setting.names == AccountKind::none || name.empty()) return {};
  if (setting.names == AccountKind::user) {
    return userNamed(name) ? "" : "there is no user of that name";
  }
  if (setting.names == AccountKind::groupOrAll && name == everyUser) return {};
  return groupNamed(name) ? "" : "there is no group of that name";
}

bool isName(const ConfigEntry& entry) { return entry.key == "name"; }

bool isBoundary(const ConfigEntry& entry) { return entry.key == "boundary"; }

// As the kernel permits it: no interface would ever have another one.
bool isInterfaceName(std::string_view name) {
  const auto isForbidden = [](unsigned char c) {
    return c == '\0' || c == '/' || c == ':' || std::isspace(c) != 0;
  };
  return name.size() < IFNAMSIZ && name != "." && name != ".." &&
         std::ranges::none_of(name, isForbidden);
}

}  // namespace

class ConfigurationReader {
 public:
  static constexpr size_t mostFaults = 100;

  Configuration read(const std::filesystem::path& file) {
    size_t bytes = 0;
    for (const std::filesystem::path& each : configFiles(file)) {
      const std::string text = configText(each);
      bytes += text.size();
      if (bytes > mostConfigBytes) {
        throw ConfigError({{{.file = each},
                            "is too long: all files together have more than " +
                                std::to_string(mostConfigBytes) + " bytes"}});
      }
      readDocument(configDocument(text, each));
    }
    checkTogether();
    if (!faults_.empty()) throw ConfigError(std::move(faults_));
    return std::move(read_);
  }

 private:
  using Section = Configuration::Section;

  // An agent that reads its files again has packets to handle, too, so it does not look for all.
  void fault(const ConfigPlace& place, std::string what) {
    if (faults_.size() == mostFaults) {
      faults_.push_back({place, "more faults from here on are not listed"});
      throw ConfigError(std::move(faults_));
    }
    faults_.push_back({place, std::move(what)});
  }

  void readDocument(ConfigDocument document) {
    for (ConfigFault& each : document.faults) fault(each.place, std::move(each.what));
    for (const ConfigTable& table : document.tables) {
      if (table.section == "agent") {
        readAgent(table);
      } else if (table.section == "interface") {
        readInterface(table);
      } else {
        readSettings(table, read_.defaults_);
      }
    }
  }

  void readAgent(const ConfigTable& table) {
    for (const ConfigEntry& entry : table.entries) {
      if (const AgentSetting* setting = agentSetting(entry.key)) {
        readAgentSetting(entry, *setting);
      } else if (isName(entry)) {
        fault(entry.keyPlace, "name belongs into [[interface]]");
      } else if (isBoundary(entry)) {
        fault(entry.keyPlace, "boundary belongs into [defaults] or [[interface]]");
      } else if (const auto written = writtenOf(entry, agentKeys())) {
        if (isOfProcess(*written)) {
          put(read_.process_, {*written, entry.key, shown(entry), entry.place});
        } else {
          fault(entry.keyPlace, entry.key + " belongs into [defaults] or [[interface]]");
        }
      }
    }
  }

  void readAgentSetting(const ConfigEntry& entry, const AgentSetting& setting) {
    if (entry.kind != kindOf(setting)) {
      return fault(entry.place, fmt::format("{} {}", entry.key, formOf(kindOf(setting))));
    }
    if (const std::string wrong = unknownAccount(setting, entry.texts.front()); !wrong.empty()) {
      return fault(entry.place, fmt::format("{} {}: {}", entry.key, entry.texts.front(), wrong));
    }
    try {
      agentSettingIs(read_.agent_, setting, entry.key, entry.texts.front());
      read_.agentPlaces_.insert_or_assign(entry.key, entry.place);
    } catch (const SettingError& error) {
      fault(entry.place, error.what());
    }
  }

  void readInterface(const ConfigTable& table) {
    const auto name = std::ranges::find_if(table.entries, isName);
    if (name == table.entries.end() || name->kind != ConfigKind::text ||
        name->texts.front().empty()) {
      return fault(table.place, "an interface needs a name or a pattern: name = \"eth0\"");
    }
    Section section{.pattern = name->texts.front(), .place = name->place, .own = {}};
    if (section.pattern == "lo") fault(name->place, "lo is the loopback interface: it has no link");
    if (!Configuration::isPattern(section.pattern) && !isInterfaceName(section.pattern)) {
      fault(name->place, fmt::format("name {}: must have at most {} bytes, without blanks, / and :",
                                     section.pattern, IFNAMSIZ - 1));
    }
    const auto [same, isNew] = read_.sectionAt_.emplace(section.pattern, read_.sections_.size());
    if (!isNew) {
      fault(name->place, fmt::format("{} has a section already, at {}", section.pattern,
                                     placeText(read_.sections_[same->second].place)));
    }
    readSettings(table, section.own);
    read_.sections_.push_back(std::move(section));
  }

  // A later file may replace a default of an earlier one.
  void readSettings(const ConfigTable& table, ResolvedSettings& to) {
    std::set<std::string_view> given;
    for (const ConfigEntry& entry : table.entries) {
      if (!isName(entry)) {
        readSetting(entry, to, given);
      } else if (table.section != "interface") {
        fault(entry.keyPlace, "name belongs into [[interface]]");
      }
    }
  }

  // Two keys may name one attribute.
  void readSetting(const ConfigEntry& entry, ResolvedSettings& to,
                   std::set<std::string_view>& given) {
    if (isBoundary(entry)) return readBoundary(entry, to);
    if (agentSetting(entry.key) != nullptr) {
      return fault(entry.keyPlace, entry.key + " belongs into [agent]");
    }
    const auto written = writtenOf(entry, interfaceKeys());
    if (!written) return;
    if (isOfProcess(*written)) return fault(entry.keyPlace, entry.key + " belongs into [agent]");
    if (!given.insert(written->attr->name).second) {
      return fault(entry.place, fmt::format("{} gives {} a second value", entry.key,
                                            settingKey(written->attr->name)));
    }
    put(to.settings, {*written, entry.key, shown(entry), entry.place});
  }

  void readBoundary(const ConfigEntry& entry, ResolvedSettings& to) {
    if (entry.kind != ConfigKind::list) {
      return fault(entry.place, fmt::format("boundary {}", formOf(ConfigKind::list)));
    }
    PlacedBoundary boundary{.prefixes = {}, .place = entry.place};
    for (const std::string& text : entry.texts) {
      if (const auto prefix = Ilvo::IpGenPrefix::parse(text)) {
        boundary.prefixes.insert(*prefix);
      } else {
        fault(entry.place,
              fmt::format("boundary {}: must be a prefix such as 239.0.0.0/8 or ff05::/16", text));
      }
    }
    to.boundary = std::move(boundary);
  }

  std::optional<Written> writtenOf(const ConfigEntry& entry, const std::vector<std::string>& keys) {
    const std::string_view attribute = attributeOf(entry.key);
    if (attribute.empty()) {
      fault(entry.keyPlace, unknownText(entry.key, keys));
      return std::nullopt;
    }
    const ConfigKind kind = kindOf(attribute);
    if (entry.kind != kind) {
      fault(entry.place, fmt::format("{} {}", entry.key, formOf(kind)));
      return std::nullopt;
    }
    try {
      return Agent::readSetting(attribute, entry.key, joined(entry));
    } catch (const SettingError& error) {
      fault(entry.place, error.what());
      return std::nullopt;
    }
  }

  static std::string joined(const ConfigEntry& entry) {
    if (entry.kind == ConfigKind::list && entry.texts.empty()) return "all";
    return fmt::to_string(fmt::join(entry.texts, ","));
  }
  static std::string shown(const ConfigEntry& entry) { return joined(entry); }

  static std::string unknownText(const std::string& key, const std::vector<std::string>& keys) {
    const std::string nearest = nearestName(key, keys);
    if (nearest.empty()) return "there is no key " + key;
    return fmt::format("there is no key {}; is it {}?", key, nearest);
  }

  static std::vector<std::string> interfaceKeys() {
    std::vector<std::string> keys{"name", "boundary"};
    for (const std::string_view attribute : settingNames()) keys.push_back(settingKey(attribute));
    return keys;
  }

  static std::vector<std::string> agentKeys() {
    std::vector<std::string> keys;
    keys.reserve(agentSettings.size());
    for (const AgentSetting& setting : agentSettings) keys.emplace_back(setting.name);
    for (const auto& attr : Mox::typeInfoOf<IntakeProcessConfig>().attrs) {
      keys.push_back(settingKey(attr.name));
    }
    return keys;
  }

  // Values that are right each by itself may contradict each other.
  void checkTogether() {
    checkSettings(read_.defaults_);
    for (const Section& section : read_.sections_) {
      checkSettings(read_.settingsOf(section.pattern));
    }
  }

  void checkSettings(const ResolvedSettings& resolved) {
    std::vector<Written> ofQuerier;
    for (const PlacedSetting& setting : resolved.settings) {
      if (isOfQuerier(setting.written)) ofQuerier.push_back(setting.written);
    }
    for (const SettingError& error :
         settingErrorsOf(*Gmp::Igmp::querierConfigFactory(""), ofQuerier)) {
      contradiction(resolved, error);
    }
  }

  void contradiction(const ResolvedSettings& resolved, const SettingError& error) {
    const auto at = std::ranges::find_if(resolved.settings, [&](const PlacedSetting& setting) {
      return setting.written.attr->name == error.name();
    });
    const ConfigPlace place = at == resolved.settings.end() ? ConfigPlace{} : at->place;
    const ConfigFault found{place, fmt::format("{} {}: {}", settingKey(error.name()),
                                               error.value().value_or(""), error.reason())};
    const auto isSame = [&](const ConfigFault& each) { return each.place == found.place; };
    if (std::ranges::none_of(faults_, isSame)) fault(found.place, found.what);
  }

  Configuration read_;
  std::vector<ConfigFault> faults_;
};

Configuration Configuration::read(const std::filesystem::path& file) {
  return ConfigurationReader().read(file);
}

bool Configuration::isPattern(std::string_view name) {
  return name.find_first_of("*?[") != std::string_view::npos;
}

const Configuration::Section* Configuration::sectionOf(std::string_view interface) const {
  const auto exact = sectionAt_.find(interface);
  if (exact != sectionAt_.end()) return &sections_[exact->second];
  const std::string name(interface);
  const auto first = std::ranges::find_if(sections_, [&](const Section& section) {
    return isPattern(section.pattern) && fnmatch(section.pattern.c_str(), name.c_str(), 0) == 0;
  });
  return first == sections_.end() ? nullptr : &*first;
}

std::vector<std::string> Configuration::interfacesAmong(
    const std::vector<std::string>& present) const {
  std::map<const Section*, std::vector<std::string>> matching;
  std::set<std::string_view> seen;
  for (const std::string& name : present) {
    const Section* section = seen.insert(name).second ? sectionOf(name) : nullptr;
    if (section != nullptr) matching[section].push_back(name);
  }
  std::vector<std::string> names;
  for (const Section& section : sections_) {
    if (isPattern(section.pattern)) {
      std::ranges::copy(matching[&section], std::back_inserter(names));
    } else {
      names.push_back(section.pattern);
    }
  }
  return names;
}

ResolvedSettings Configuration::settingsOf(std::string_view interface) const {
  ResolvedSettings resolved = defaults_;
  const Section* section = sectionOf(interface);
  if (section == nullptr) return resolved;
  for (const PlacedSetting& setting : section->own.settings) {
    put(resolved.settings, setting);
  }
  if (section->own.boundary) resolved.boundary = section->own.boundary;
  return resolved;
}

}  // namespace Agent
