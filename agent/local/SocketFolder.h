// The folder of a socket.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include <sys/stat.h>

namespace Agent {

// Of the files that are made while it exists: a mode that is set later would leave a gap.
class FileMask {
 public:
  explicit FileMask(mode_t mask) : before_(umask(mask)) {}
  ~FileMask() { umask(before_); }
  FileMask(const FileMask&) = delete;
  FileMask& operator=(const FileMask&) = delete;

 private:
  const mode_t before_;
};

inline std::filesystem::path socketFolder(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  return folder.empty() ? std::filesystem::path(".") : folder;
}

// With all folders above it, 0755. True when it was missing. Throws std::runtime_error.
inline bool madeFolder(const std::filesystem::path& folder) {
  const FileMask mask(S_IWGRP | S_IWOTH);
  std::error_code failed;
  const bool isNew = std::filesystem::create_directories(folder, failed);
  if (failed) throw std::runtime_error(failed.message());
  return isNew;
}

}  // namespace Agent
