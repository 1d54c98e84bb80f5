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

ucred credentials(int fd) {
  ucred peer{};
  socklen_t length = sizeof(peer);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
    peer.uid = static_cast<uid_t>(-1);
    peer.gid = static_cast<gid_t>(-1);
  }
  return peer;
}

bool inGroup(int fd, gid_t group) {
  std::vector<gid_t> groups(NGROUPS_MAX);
  auto length = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
  if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) != 0) return false;
  groups.resize(length / sizeof(gid_t));
  return std::ranges::find(groups, group) != groups.end();
}

}  // namespace

Rights peerRights(int fd) {
  const ucred peer = credentials(fd);
  const bool may =
      peer.uid == 0 || peer.uid == geteuid() || peer.gid == getegid() || inGroup(fd, getegid());
  return may ? Rights::configure : Rights::read;
}

std::string peerName(int fd) {
  const ucred peer = credentials(fd);
  return fmt::format("user {} (process {})", peer.uid, peer.pid);
}

}  // namespace Agent
