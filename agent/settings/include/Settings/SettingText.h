// Settings of a querier as people write them: "queryInterval" or "--query-interval", and a value.
#pragma once

#include <string>
#include <string_view>

#include <NboAttrLog/TreeIn.h>

namespace Agent {

// "queryInterval" -> "--query-interval".
std::string optionName(std::string_view attribute);

// The value that a text gives to an attribute that has a rule. Throws SettingError, which names the
// attribute `name`, with a text such as "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)".
Mox::NboAttrLog::Written readSetting(std::string_view attribute, std::string_view name,
                                     std::string_view text);

}  // namespace Agent
