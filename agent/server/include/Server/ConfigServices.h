// What requests about the configuration need of the agent: to read its files again, and to return
// the settings that hold, with the origin of each.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <Mox/Value.h>

namespace Agent {

// One of the changes that a reload made, or one of the reasons why it made none.
struct ConfigChange {
  enum Kind { fault, added, removed, changed, needsRestart };

  Kind kind;
  std::string interface = {};  // empty: of the agent as a whole
  std::string setting = {};    // as files name it
  std::string before = {};
  std::string after = {};
  std::string origin = {};  // of the new value; of a fault its place, empty for none
  std::string what = {};    // a fault is
};

// "eth0 query-interval 60s (was 125s), /etc/igmpq/igmpq.toml:3".
std::string changeText(const ConfigChange& change);

struct ShownSetting {
  std::string key;   // in JSON
  std::string name;  // for people
  Mox::Value value;
  std::string text;
  std::string origin;  // empty for a value that follows from others
};

struct ConfigServices {
  // Reads the files again and takes over all of them, or nothing when there are faults. Throws
  // std::runtime_error when no file is in use.
  std::function<std::vector<ConfigChange>()> reload;
  std::function<std::vector<std::string>()> interfaces;
  // Of an interface, or of the agent as a whole for an empty name. None for an interface that is
  // not there any more.
  std::function<std::optional<std::vector<ShownSetting>>(const std::string& interface)> settings;
};

}  // namespace Agent
