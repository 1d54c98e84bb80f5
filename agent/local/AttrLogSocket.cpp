#include <Local/AttrLogSocket.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

#include "SocketFolder.h"

namespace Agent {

namespace {

constexpr const char* rootPath = "/run/igmpq/attrlog.sock";
constexpr const char* rootStorePath = "/run/igmpq-store/store.sock";

// In the directory of this user's sockets, for all but root; empty when the environment names none.
std::string ownPath(const char* ofRoot, const char* name) {
  if (geteuid() == 0) return ofRoot;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || *runtime == '\0') return {};
  return std::string(runtime) + name;
}

}  // namespace

std::string attrLogSocketPath() { return ownPath(rootPath, "/igmpq/attrlog.sock"); }

std::string storeSocketPath() { return ownPath(rootStorePath, "/igmpq-store/store.sock"); }

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
  try {
    const SocketFolder folder = openedSocketFolder(attrLogPath);
    if (!folder.isNew && socketFolderPath(attrLogPath) != socketFolderPath(rootPath)) return;
    ::fchownat(folder.opened.fd(), "", user, group, AT_EMPTY_PATH);
  } catch (const std::runtime_error&) {
  }
}

}  // namespace Agent
