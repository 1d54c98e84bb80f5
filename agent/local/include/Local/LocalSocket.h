// Unix stream sockets of this machine, by the path of their file.
#pragma once

#include <stdexcept>
#include <string>

#include <Local/Descriptor.h>

namespace Agent {

// Thrown when there is no connection to the agent; the text has the reason and a remedy.
class ConnectError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A socket that is connected to the agent's socket at that path. Throws ConnectError.
Descriptor connectToAgent(const std::string& path);

// A socket that accepts connections at that path, in a folder that is created if it is missing. A
// file that a killed agent left is replaced. Throws std::runtime_error with the reason.
Descriptor servingSocket(const std::string& path);

}  // namespace Agent
