// What the kernel asks of a program that hears and sends packets on its own.
#pragma once

#include <string>

namespace Agent {

// Empty when this process may open packet sockets; else what is missing and how to grant it.
std::string missingPrivilege();

}  // namespace Agent
