// The process at the other end of a local socket, as the kernel reports it.
#pragma once

#include <string>

#include <NboAttrLog/Session.h>

namespace Agent {

// Root, the user that the agent runs as, and the members of its group (primary or supplementary)
// may configure. Others may read, and so may a peer whose credentials are not available.
Mox::NboAttrLog::Rights peerRights(int fd);

// "user 1000 (process 4711)"
std::string peerName(int fd);

}  // namespace Agent
