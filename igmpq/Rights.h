// The user that the agent becomes and the groups that may use it, as settings name them.
#pragma once

#include <optional>

#include <Local/Accounts.h>
#include <Local/LocalPeer.h>
#include <Settings/AgentSettings.h>

namespace Igmpq {

// Each throws BadUse for a name that this machine does not know.
std::optional<Agent::User> userOf(const Agent::AgentSettings& settings);
Agent::PeerAccess accessOf(const Agent::AgentSettings& settings);

// From here on the process has the rights that it needs and no others. Only root can make the
// folder of the sockets of another user, so that comes before.
void limitRights(const std::optional<Agent::User>& user, const std::string& socketPath);

}  // namespace Igmpq
