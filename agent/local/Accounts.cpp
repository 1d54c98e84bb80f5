#include <Local/Accounts.h>

#include <grp.h>
#include <pwd.h>

namespace Agent {

std::optional<User> userNamed(const std::string& name) {
  const passwd* const found = getpwnam(name.c_str());
  if (found == nullptr) return std::nullopt;
  User user{.name = name, .id = found->pw_uid, .group = found->pw_gid};
  int count = 0;
  getgrouplist(name.c_str(), user.group, nullptr, &count);  // fails, and sets the number
  user.groups.resize(static_cast<size_t>(count));
  if (getgrouplist(name.c_str(), user.group, user.groups.data(), &count) < 0) return std::nullopt;
  user.groups.resize(static_cast<size_t>(count));
  return user;
}

std::optional<gid_t> groupNamed(const std::string& name) {
  const group* const found = getgrnam(name.c_str());
  return found == nullptr ? std::nullopt : std::optional(found->gr_gid);
}

std::string userName(uid_t id) {
  const passwd* const found = getpwuid(id);
  return found == nullptr ? std::to_string(id) : found->pw_name;
}

}  // namespace Agent
