// Where the value of a setting comes from.
#pragma once

#include <functional>
#include <map>
#include <string>

#include <Config/ConfigFault.h>

namespace Agent {

struct SettingOrigin {
  enum From { byDefault, file, commandLine, runTime };

  From from = byDefault;
  ConfigPlace place = {};  // in a file

  bool operator==(const SettingOrigin&) const = default;
};

// By attribute or key; those that are missing have their defaults.
using SettingOrigins = std::map<std::string, SettingOrigin, std::less<>>;

SettingOrigin originOf(const SettingOrigins& origins, std::string_view setting);

// "default", "/etc/igmpq/igmpq.toml:3", "command line", "set at run time".
std::string originText(const SettingOrigin& origin);

}  // namespace Agent
