#include <Local/LocalPeer.h>

#include <algorithm>
#include <climits>
#include <vector>

#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Agent {

using Mox::NboAttrLog::Rights;

namespace {

constexpr const char* unknownProcess = "an unknown process";

// A socket that has no credentials, such as one of another family, reports the user -1.
std::optional<ucred> credentials(int fd) {
  ucred peer{};
  socklen_t length = sizeof(peer);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return std::nullopt;
  if (peer.uid == static_cast<uid_t>(-1) || peer.gid == static_cast<gid_t>(-1)) return std::nullopt;
  return peer;
}

bool isTrusted(const ucred& peer) { return peer.uid == 0 || peer.uid == geteuid(); }

bool hasSupplementaryGroup(int fd, gid_t group) {
  std::vector<gid_t> groups(NGROUPS_MAX);
  auto length = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
  if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) != 0) return false;
  groups.resize(length / sizeof(gid_t));
  return std::ranges::find(groups, group) != groups.end();
}

}  // namespace

RightsOf peerRights(const PeerAccess& access) {
  return [access](int fd) -> std::optional<Rights> {
    const std::optional<ucred> peer = credentials(fd);
    if (!peer) return std::nullopt;
    const auto isOf = [&](const std::optional<gid_t>& group) {
      return group && (peer->gid == *group || hasSupplementaryGroup(fd, *group));
    };
    if (isTrusted(*peer) || isOf(access.configureGroup)) return Rights::configure;
    if (access.isOpen || isOf(access.readGroup)) return Rights::read;
    return std::nullopt;
  };
}

bool isPeerTrusted(int fd) {
  const std::optional<ucred> peer = credentials(fd);
  return peer && isTrusted(*peer);
}

std::string peerName(int fd) {
  const std::optional<ucred> peer = credentials(fd);
  return peer ? fmt::format("user {} (process {})", peer->uid, peer->pid) : unknownProcess;
}

std::string peerUser(int fd) {
  const std::optional<ucred> peer = credentials(fd);
  return peer ? fmt::format("user {}", peer->uid) : unknownProcess;
}

}  // namespace Agent
