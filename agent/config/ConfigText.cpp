#include "ConfigText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Config/ConfigFault.h>
#include <Local/Accounts.h>
#include <Local/Descriptor.h>

namespace Agent {

namespace {

[[noreturn]] void fail(const std::filesystem::path& file, std::string what) {
  throw ConfigError({{.place = {.file = file}, .what = std::move(what)}});
}

// A reload reads the files as the user that the agent has become.
std::string openFailure(int error) {
  std::string what = std::generic_category().message(error);
  if (error != EACCES) return what;
  return fmt::format(
      "{}: this process runs as user {} and has no right to read it; `chown` it to that user, or "
      "`chgrp` and `chmod g+r` it for a group of that user",
      what, userName(geteuid()));
}

std::string faultLines(const std::vector<ConfigFault>& faults) {
  std::vector<std::string> lines;
  lines.reserve(faults.size());
  for (const ConfigFault& fault : faults) {
    lines.push_back(placeText(fault.place) + ": " + fault.what);
  }
  return fmt::to_string(fmt::join(lines, "\n"));
}

}  // namespace

std::string placeText(const ConfigPlace& place) {
  std::string text = place.file;
  if (place.line != 0) text += fmt::format(":{}", place.line);
  if (place.column != 0) text += fmt::format(":{}", place.column);
  return text;
}

ConfigError::ConfigError(std::vector<ConfigFault> faults)
    : runtime_error(faultLines(faults)), faults_(std::move(faults)) {}

std::vector<std::filesystem::path> configFiles(const std::filesystem::path& file) {
  std::vector<std::filesystem::path> files;
  const std::filesystem::path folder = file.parent_path() / "conf.d";
  std::error_code error;
  std::filesystem::directory_iterator entry(folder, error);
  while (!error && entry != std::filesystem::directory_iterator()) {
    const std::filesystem::path& path = entry->path();
    // Editors keep hidden files beside the one that they change.
    const bool isHidden = path.filename().native().starts_with('.');
    if (path.extension() == ".toml" && !isHidden) files.push_back(path);
    entry.increment(error);
  }
  // Without the files of a folder that cannot be read, their settings would seem to be taken away.
  const bool isThere =
      error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory;
  if (error && isThere) fail(folder, openFailure(error.value()));
  std::ranges::sort(files);
  files.insert(files.begin(), file);
  return files;
}

// Without waiting: a path may lead to a pipe that nobody writes to.
std::string configText(const std::filesystem::path& file) {
  const Descriptor opened(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!opened.isOpen()) fail(file, openFailure(errno));
  struct stat status {};
  if (fstat(opened.fd(), &status) != 0) fail(file, std::generic_category().message(errno));
  if (!S_ISREG(status.st_mode)) fail(file, "is no regular file");
  std::string text;
  std::array<char, 16384> bytes;
  while (true) {
    const ssize_t got = ::read(opened.fd(), bytes.data(), bytes.size());
    if (got < 0) fail(file, std::generic_category().message(errno));
    if (got == 0) return text;
    text.append(bytes.data(), static_cast<size_t>(got));
    if (text.size() > mostConfigBytes) {
      fail(file, fmt::format("is longer than {} bytes", mostConfigBytes));
    }
  }
}

}  // namespace Agent
