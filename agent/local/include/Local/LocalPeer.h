// Who is at the other end of a local socket. The kernel vouches for it.
#pragma once

#include <string>

#include <NboAttrLog/Session.h>

namespace Agent {

// Root, and the user and the group that the agent itself runs as, may configure; others may read.
Mox::NboAttrLog::Rights peerRights(int fd);

// "user 1000 (process 4711)"
std::string peerName(int fd);

}  // namespace Agent
