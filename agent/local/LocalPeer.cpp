#include <Local/LocalPeer.h>

#include <algorithm>
#include <climits>
#include <optional>
#include <vector>

#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Agent {

using Mox::NboAttrLog::Rights;

namespace {

std::optional<ucred> credentials(int fd) {
  ucred peer{};
  socklen_t length = sizeof(peer);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return std::nullopt;
  return peer;
}

bool hasSupplementaryGroup(int fd, gid_t group) {
  std::vector<gid_t> groups(NGROUPS_MAX);
  auto length = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
  if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) != 0) return false;
  groups.resize(length / sizeof(gid_t));
  return std::ranges::find(groups, group) != groups.end();
}

}  // namespace

Rights peerRights(int fd) {
  const std::optional<ucred> peer = credentials(fd);
  if (!peer) return Rights::read;
  const bool isRootOrSelf = peer->uid == 0 || peer->uid == geteuid();
  const bool isOfGroup = peer->gid == getegid() || hasSupplementaryGroup(fd, getegid());
  return isRootOrSelf || isOfGroup ? Rights::configure : Rights::read;
}

std::string peerName(int fd) {
  const std::optional<ucred> peer = credentials(fd);
  if (!peer) return "an unknown process";
  return fmt::format("user {} (process {})", peer->uid, peer->pid);
}

}  // namespace Agent
