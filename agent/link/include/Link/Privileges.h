// The one right that a program needs to receive and send raw packets, and the end of all others,
// or of all.
#pragma once

#include <optional>
#include <string>

#include <Local/Accounts.h>

namespace Agent {

// Empty when this process may open packet sockets; otherwise the missing right and how to grant it.
std::string missingPrivilege();

// As many descriptors as this process may have, or as before where the kernel refuses.
void raiseDescriptorLimit();

// From here on the process has the right to raw packets and no other, and no program that it might
// execute has more. With a user it becomes that user, with the groups of that user; only root can
// become another one. Throws std::runtime_error.
//
// Everything that is opened later is opened with that right alone, so that what works at the start
// works when an interface comes back, too.
void keepPacketRightOnly(const std::optional<User>& user);
// The same without any right at all, for a program that handles no packets.
void keepNoRight();

}  // namespace Agent
