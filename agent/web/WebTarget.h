// The target of a request, taken apart and decoded: "/api/v1/interfaces/eth0/groups?limit=10".
//
// Every program that can reach the port chooses its bytes.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

struct WebTarget {
  static constexpr size_t mostBytes = 2048;

  std::vector<std::string> path = {};  // its segments
  std::map<std::string, std::string> query = {};
};

// Nothing when it is too long, no absolute path, has wrong percent codes, control characters, empty
// or dot segments, a slash within a segment, or a key of the query twice (RFC 3986 section 3.3).
std::optional<WebTarget> webTarget(std::string_view target);

}  // namespace Agent
