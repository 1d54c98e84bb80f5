// The users and groups of this machine by name.
//
//   const User user = userNamed("igmpq");
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Agent {

struct User {
  std::string name;
  uid_t id = 0;
  gid_t group = 0;
  std::vector<gid_t> groups = {};  // all, with the primary one
};

// Nullopt where there is none of that name.
std::optional<User> userNamed(const std::string& name);
std::optional<gid_t> groupNamed(const std::string& name);

// Its number where it has no name.
std::string userName(uid_t id);

}  // namespace Agent
