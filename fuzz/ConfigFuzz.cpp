// Any bytes as a configuration file give settings, or faults whose lines and columns are inside the
// file. Settings that were accepted, written out as each interface has them and read again, are the
// same.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include <Config/Configuration.h>

#include "MemoryFile.h"
#include "Property.h"

namespace {

using Agent::Configuration;
using Fuzz::property;

bool beginsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }

// A fault at the end of a line or of the file stands behind its last character.
void checkPlace(const Agent::ConfigPlace& place, const std::string& file, std::string_view text) {
  property(place.file == file, "a fault names the file");
  if (place.line == 0) return property(place.column == 0, "no column without a line");
  property(place.column > 0, "columns count from 1");
  for (Mox::U32 line = 1; line < place.line; ++line) {
    const size_t end = text.find('\n');
    property(end != std::string_view::npos, "the line is one of the file");
    text.remove_prefix(end + 1);
  }
  text = text.substr(0, text.find('\n'));
  const auto characters = std::count_if(text.begin(), text.end(), beginsCharacter);
  property(place.column <= static_cast<size_t>(characters) + 1, "the column is one of the line");
}

std::optional<Configuration> configurationOf(std::string_view text) {
  const Fuzz::MemoryFile file({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  try {
    return Configuration::read(file.path());
  } catch (const Agent::ConfigError& error) {
    property(!error.faults().empty(), "what is refused has a fault");
    for (const Agent::ConfigFault& fault : error.faults()) {
      property(!fault.what.empty(), "a fault says what is wrong");
      checkPlace(fault.place, file.path(), text);
    }
    return std::nullopt;
  }
}

std::string stringOf(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f || c == '"' || c == '\\') {
      out += fmt::format("\\u{:04x}", byte);
    } else {
      out += c;
    }
  }
  return out + '"';
}

// Prefixes between commas, as a list.
std::string listOf(std::string_view text) {
  std::string out = "[";
  while (!text.empty() && text != "all") {
    const size_t end = std::min(text.find(','), text.size());
    out += stringOf(text.substr(0, end)) + ",";
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return out + "]";
}

std::string written(const Agent::PlacedSetting& setting) {
  std::string value = setting.text;
  if (value == "on" || value == "off") {
    value = value == "on" ? "true" : "false";
  } else if (std::holds_alternative<std::string>(setting.written.value)) {
    value = listOf(value);
  }
  return fmt::format("{} = {}\n", setting.key, value);
}

std::string written(const Agent::AgentSettings& agent, const Agent::AgentSetting& setting) {
  std::string value = agentSettingText(agent, setting);
  if (std::holds_alternative<std::string Agent::AgentSettings::*>(setting.member)) {
    value = stringOf(value);
  } else if (std::holds_alternative<bool Agent::AgentSettings::*>(setting.member)) {
    value = value == "on" ? "true" : "false";
  }
  return fmt::format("{} = {}\n", setting.name, value);
}

std::string written(const Configuration& configuration, const std::vector<std::string>& names) {
  std::string text = "[agent]\n";
  for (const auto& [key, place] : configuration.agentPlaces()) {
    text += written(configuration.agent(), *Agent::agentSetting(key));
  }
  for (const auto& setting : configuration.process()) text += written(setting);
  for (const std::string& name : names) {
    text += fmt::format("[[interface]]\nname = {}\n", stringOf(name));
    const Agent::ResolvedSettings resolved = configuration.settingsOf(name);
    for (const auto& setting : resolved.settings) text += written(setting);
    if (!resolved.boundary) continue;
    text += "boundary = [";
    for (const auto& prefix : resolved.boundary->prefixes) {
      text += stringOf(prefix.stringValue()) + ",";
    }
    text += "]\n";
  }
  return text;
}

bool isSame(const std::vector<Agent::PlacedSetting>& a,
            const std::vector<Agent::PlacedSetting>& b) {
  return std::ranges::equal(a, b, [](const auto& one, const auto& other) {
    return one.written.attr == other.written.attr && one.written.value == other.written.value;
  });
}

void checkSame(const Configuration& configuration, const Configuration& again,
               const std::vector<std::string>& names) {
  for (const Agent::AgentSetting& setting : Agent::agentSettings) {
    property(agentSettingText(configuration.agent(), setting) ==
                 agentSettingText(again.agent(), setting),
             "the agent has the same settings");
  }
  property(isSame(configuration.process(), again.process()), "the limits of all are the same");
  for (const std::string& name : names) {
    const Agent::ResolvedSettings before = configuration.settingsOf(name);
    const Agent::ResolvedSettings after = again.settingsOf(name);
    property(isSame(before.settings, after.settings), "an interface has the same settings");
    property(before.boundary.has_value() == after.boundary.has_value() &&
                 (!before.boundary || before.boundary->prefixes == after.boundary->prefixes),
             "an interface has the same boundary");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto configuration = configurationOf(text);
  if (!configuration) return 0;
  std::vector<std::string> names = configuration->interfacesAmong({"eth0", "eth1", "vlan7"});
  property(configuration->namesInterfaces() || names.empty(), "interfaces come from sections");
  names.resize(std::min(names.size(), size_t{16}));  // each has all the defaults
  const auto again = configurationOf(written(*configuration, names));
  property(again.has_value(), "settings that are written out are accepted");
  checkSame(*configuration, *again, names);
  return 0;
}
