// Settings of an interface as people write them: "queryInterval" or "--query-interval", and a
// value. They are the settings of its querier, those of its intake, and those of the intake that
// all interfaces share.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <Mox/Value.h>
#include <NboAttrLog/TreeIn.h>

namespace Agent {

// "queryInterval" -> "--query-interval".
std::string optionName(std::string_view attribute);
// "queryInterval" -> "query-interval", as in a configuration file.
std::string settingKey(std::string_view attribute);

// "on" or "off"; throws SettingError for other texts.
bool flagOf(std::string_view name, std::string_view text);

// A value of any setting as people read it: "on", "2", "125s", "10.0.0.0/8,192.0.2.1", "all" for no
// restriction.
std::string settingValueText(const Mox::Value& value);

// Not an attribute of its own: on is a lastMemberQueryCount of 0, off its default.
inline constexpr std::string_view immediateLeave = "immediateLeave";

// All of them, in the order in which help and manual list them.
std::vector<std::string_view> settingNames();

// The value that a text gives to one of them. Throws SettingError, which names the attribute
// `name`, with a text such as "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)".
Mox::NboAttrLog::Written readSetting(std::string_view attribute, std::string_view name,
                                     std::string_view text);

}  // namespace Agent
