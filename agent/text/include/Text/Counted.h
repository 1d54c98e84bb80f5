// How many there are of a thing, in words: "1 interface", "3 interfaces".
#pragma once

#include <cstddef>
#include <string>

namespace Agent {

// Of a thing whose plural has an s.
inline std::string counted(std::size_t count, const char* what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

}  // namespace Agent
