// The privilege that the kernel requires of a program that receives and sends raw packets.
#pragma once

#include <string>

namespace Agent {

// Empty when this process may open packet sockets; otherwise the missing right and how to grant it.
std::string missingPrivilege();

// As many descriptors as this process may have, or as before where the kernel refuses.
void raiseDescriptorLimit();

}  // namespace Agent
