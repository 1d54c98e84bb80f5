// Objects and their attributes by path, as `igmpq get` reads them: from a root through collections
// and attributes that hold other objects, to an object, a value or the keys of a collection.
//
//   const ObjectRoots roots{{"status/eth0", status}, {"querierSm/eth0", querier}};
//   readPath(roots, "status/eth0/group[239.1.1.1]/expiryTime").text    // "1260.5"
//   completions(roots, "status/eth0/qu")                               // paths that begin so
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <Server/ObjectRoots.h>
#include <nlohmann/json.hpp>

namespace Agent {

// The path leads to nothing; the text lists what there is.
class PathError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The value at the end of a path. An object has those of its attributes by name: for an attribute
// that holds another object the name of that object, for a collection the number of its members. A
// collection has its keys, and behind the first `mostKeys` of them a text with the number of the
// others.
struct PathContent {
  nlohmann::ordered_json value;
  nlohmann::ordered_json text;  // the same with every value as people read it
};
inline constexpr size_t mostKeys = 10'000;

PathContent readPath(const ObjectRoots& roots, std::string_view path);

// Paths that begin so, at most `mostCompletions`.
inline constexpr size_t mostCompletions = 1'000;
std::vector<std::string> completions(const ObjectRoots& roots, std::string_view prefix);

}  // namespace Agent
