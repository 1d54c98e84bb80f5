#include <Local/AttrLogSocket.h>

#include <cstdlib>
#include <filesystem>

#include <unistd.h>

namespace Agent {

namespace {

constexpr const char* rootPath = "/run/igmpq/attrlog.sock";

}  // namespace

std::string attrLogSocketPath() {
  if (geteuid() == 0) return rootPath;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || *runtime == '\0') return {};
  return std::string(runtime) + "/igmpq/attrlog.sock";
}

std::string servedAttrLogSocketPath() {
  const std::string own = attrLogSocketPath();
  std::error_code failed;
  return !own.empty() && std::filesystem::exists(own, failed) ? own : rootPath;
}

std::string requestSocketPath(const std::string& attrLogPath) {
  std::filesystem::path path(attrLogPath);
  if (path.filename() == "attrlog.sock") return path.replace_filename("request.sock");
  if (path.extension() == ".request") return attrLogPath + ".request";  // else both would be one
  return path.replace_extension(".request");
}

}  // namespace Agent
