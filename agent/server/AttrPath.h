// Objects and their attributes by path, as `igmpq get` reads them: from a root through collections
// and attributes that hold other objects, to an object, a value or the keys of a collection.
//
//   const ObjectRoots roots{{"status/eth0", status}, {"querierSm/eth0", querier}};
//   const PathTarget target = readPath(roots, "status/eth0/group[239.1.1.1]/expiryTime");
//   std::get<PathContent>(target).text  // "1260.5"
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <Server/ObjectRoots.h>
#include <nlohmann/json.hpp>
#include "KeyWalk.h"

namespace Agent {

// The path leads to nothing; the text lists what there is.
class PathError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The value at the end of a path. An object has those of its attributes by name: for an attribute
// that holds another object the name of that object, for a collection the number of its members.
struct PathContent {
  nlohmann::ordered_json value;
  nlohmann::ordered_json text;  // the same with every value as people read it
};

// A path that ends at a collection leads to its first `mostKeys` keys.
inline constexpr size_t mostKeys = 10'000;
using PathTarget = std::variant<PathContent, KeyWalk>;
PathTarget readPath(const ObjectRoots& roots, std::string_view path);

// Paths that begin so, at most `mostCompletions`; collected in steps, for the sake of the keys.
inline constexpr size_t mostCompletions = 1'000;
class Completion {
 public:
  // A path, or those of a collection's members: then the text is what stands before the key.
  struct Part {
    std::string text;
    std::optional<KeyWalk> keys;
  };

  Completion(const ObjectRoots& roots, std::string_view prefix);

  // False when the paths are complete.
  bool step();
  const std::vector<std::string>& paths() const { return paths_; }

 private:
  std::vector<Part> parts_;
  size_t at_ = 0;
  std::vector<std::string> paths_;
};

}  // namespace Agent
