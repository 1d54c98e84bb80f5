// The privilege that the kernel requires of a program that receives and sends raw packets.
#pragma once

#include <string>

namespace Agent {

// Empty when this process may open packet sockets; otherwise the missing right and how to grant it.
std::string missingPrivilege();

}  // namespace Agent
