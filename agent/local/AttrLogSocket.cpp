#include <Local/AttrLogSocket.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

#include <Local/Descriptor.h>
#include "SocketFolder.h"

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

// A folder that was there before is the operator's, and stays as it is, except the usual one. Where
// it fails, the reason is found again when the socket is to be made.
void socketFolderIs(const std::string& attrLogPath, uid_t user, gid_t group) {
  const std::filesystem::path folder = socketFolder(attrLogPath);
  try {
    if (!madeFolder(folder) && folder != socketFolder(rootPath)) return;
  } catch (const std::runtime_error&) {
    return;
  }
  const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!opened.isOpen() || fchown(opened.fd(), user, group) != 0) return;
}

}  // namespace Agent
