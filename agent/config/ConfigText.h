// The bytes of configuration files.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Agent {

// A file of settings that people write is far smaller; a mistaken path may lead anywhere.
inline constexpr size_t mostConfigBytes = size_t{1} << 20;

// The file and, in the order of their names, the files conf.d/*.toml beside it.
std::vector<std::filesystem::path> configFiles(const std::filesystem::path& file);

// Throws ConfigError for one that cannot be read, is no regular file, or is too long.
std::string configText(const std::filesystem::path& file);

}  // namespace Agent
