// What a fuzz target says when its property does not hold: the sentence, on standard error, and the
// end of the process, which is what libFuzzer takes as a finding.
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
