#include "Rights.h"

#include <string>

#include <fmt/format.h>
#include <unistd.h>

#include <Link/Privileges.h>
#include <Local/AttrLogSocket.h>

#include "Verb.h"

namespace Igmpq {

namespace {

gid_t groupOf(const char* option, const std::string& name) {
  const auto group = Agent::groupNamed(name);
  if (!group) throw BadUse(fmt::format("{} {}: there is no group of that name", option, name));
  return *group;
}

}  // namespace

std::optional<Agent::User> userOf(const Agent::AgentSettings& settings) {
  const std::string& name = settings.user;
  if (name.empty()) return std::nullopt;
  auto user = Agent::userNamed(name);
  if (!user) throw BadUse(fmt::format("--user {}: there is no user of that name", name));
  if (geteuid() != 0 && user->id != geteuid()) {
    throw BadUse(fmt::format("--user {}: only root can become another user", name));
  }
  return user;
}

Agent::PeerAccess accessOf(const Agent::AgentSettings& settings) {
  Agent::PeerAccess access{.isOpen = settings.readGroup == Agent::everyUser};
  if (!settings.readGroup.empty() && !access.isOpen) {
    access.readGroup = groupOf("--read-group", settings.readGroup);
  }
  if (!settings.configureGroup.empty()) {
    access.configureGroup = groupOf("--configure-group", settings.configureGroup);
  }
  return access;
}

void limitRights(const std::optional<Agent::User>& user, const std::string& socketPath) {
  const bool isRoot = geteuid() == 0;
  if (isRoot && !socketPath.empty()) {
    Agent::socketFolderIs(socketPath, user ? user->id : 0, user ? user->group : 0);
  }
  Agent::keepPacketRightOnly(isRoot ? user : std::nullopt);
}

}  // namespace Igmpq
