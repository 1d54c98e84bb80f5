// The process at the other end of a local socket, as the kernel reports it, and its rights.
//
// The kernel keeps the identity that a process had when it connected.
//
//   const RightsOf rightsOf = peerRights({.readGroup = groupNamed("operators")});
//   if (const auto rights = rightsOf(fd)) ...
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <sys/types.h>

#include <NboAttrLog/Session.h>

namespace Agent {

// Processes that have rights beside those of root and of the agent's own user, which can configure.
// A process that can configure can read, too.
struct PeerAccess {
  bool isOpen = false;  // every process can read
  std::optional<gid_t> readGroup = {};
  std::optional<gid_t> configureGroup = {};
};

// The rights of the peer of a socket; nullopt for none, also when its credentials cannot be read.
using RightsOf = std::function<std::optional<Mox::NboAttrLog::Rights>(int fd)>;
RightsOf peerRights(const PeerAccess& access);

// Whether the peer runs as root or as the user of this process, so that it can do as much as this
// process anyway.
bool isPeerTrusted(int fd);

// "user 1000 (process 4711)"
std::string peerName(int fd);
// "user 1000"
std::string peerUser(int fd);

}  // namespace Agent
