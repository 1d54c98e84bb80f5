// The structure of one configuration file: sections of keys and values, each with its place. What a
// key means is not known here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <Config/ConfigFault.h>

namespace Agent {

enum class ConfigKind { flag, number, text, list };

struct ConfigEntry {
  std::string key;
  ConfigKind kind;
  // As on the command line: "on", "125", or the strings of a list.
  std::vector<std::string> texts;
  ConfigPlace keyPlace;
  ConfigPlace place;  // of the value
};

struct ConfigTable {
  std::string section;  // "defaults", "interface" or "agent"
  ConfigPlace place;
  std::vector<ConfigEntry> entries;  // in the order of the file
};

struct ConfigDocument {
  std::vector<ConfigTable> tables;
  std::vector<ConfigFault> faults;  // of structure
};

// Throws ConfigError for the first fault of syntax.
ConfigDocument configDocument(std::string_view text, const std::string& file);

}  // namespace Agent
