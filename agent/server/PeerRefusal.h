// A process that connected to a socket of the agent and was refused.
#pragma once

#include <string>

namespace Agent {

// Reports it to the operator, by its user: each connection may come from another process. `what`
// names the service.
void reportRefusal(int fd, const std::string& what, const std::string& why);

}  // namespace Agent
