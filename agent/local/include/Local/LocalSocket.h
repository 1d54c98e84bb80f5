// Connects to the Unix stream socket of an agent or of a store, by the path of its file.
#pragma once

#include <stdexcept>
#include <string>

#include <Local/Descriptor.h>

namespace Agent {

// Thrown when there is no connection; the text has the reason and a remedy.
class ConnectError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A socket that is connected to the agent's socket at that path. Throws ConnectError.
Descriptor connectToAgent(const std::string& path);
// The same for the socket of a store.
Descriptor connectToStore(const std::string& path);

}  // namespace Agent
