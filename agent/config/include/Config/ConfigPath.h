// The place of the configuration.
#pragma once

namespace Agent {

inline constexpr const char* usualConfigPath = "/etc/igmpq/igmpq.toml";

}  // namespace Agent
