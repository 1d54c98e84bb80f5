// A fuzz target whose property does not hold writes the property to standard error and aborts,
// which is a finding to libFuzzer.
//
//   property(again == first, "a report that is rebuilt reads the same");
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace Fuzz {

inline void property(bool holds, std::string_view what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %.*s\n", static_cast<int>(what.size()), what.data());
  std::abort();
}

}  // namespace Fuzz
