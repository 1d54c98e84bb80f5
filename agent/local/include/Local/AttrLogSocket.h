// Where an agent serves its attribute log and takes requests, and others find it.
#pragma once

#include <string>

namespace Agent {

// "/run/igmpq/attrlog.sock" for root, "$XDG_RUNTIME_DIR/igmpq/attrlog.sock" for others; empty when
// the environment names no such directory.
std::string attrLogSocketPath();

// Where a running agent is to be found: at one's own path if there is a socket, else at root's.
std::string servedAttrLogSocketPath();

// Where the agent takes requests that serves its attribute log there: "request.sock" beside
// "attrlog.sock", and beside a socket of any other name the same name with the extension
// ".request".
std::string requestSocketPath(const std::string& attrLogPath);

}  // namespace Agent
