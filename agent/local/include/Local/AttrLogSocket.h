// The paths at which an agent serves its attribute log and answers requests, and at which other
// programs find it.
#pragma once

#include <string>

#include <sys/types.h>

namespace Agent {

// "/run/igmpq/attrlog.sock" for root, "$XDG_RUNTIME_DIR/igmpq/attrlog.sock" for others; empty when
// the environment names no such directory.
std::string attrLogSocketPath();

// Where a store keeps the state of such an agent: "/run/igmpq-store/store.sock" for root,
// "$XDG_RUNTIME_DIR/igmpq-store/store.sock" for others; empty as above.
std::string storeSocketPath();

// The path of a running agent: the socket of this user's agent if it exists, else that of root's.
std::string servedAttrLogSocketPath();

// The path of the request socket of the agent that serves its attribute log at that path:
// "request.sock" beside "attrlog.sock", and beside a socket of any other name the same name with
// the extension ".request".
std::string requestSocketPath(const std::string& attrLogPath);

// Makes the folder of the sockets for an agent that runs as that user, or gives the usual one to
// it; for root, before it becomes that user.
void socketFolderIs(const std::string& attrLogPath, uid_t user, gid_t group);

}  // namespace Agent
