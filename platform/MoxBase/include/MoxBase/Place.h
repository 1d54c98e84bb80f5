// A place in the source: the function and line of whoever calls with a defaulted Place.
#pragma once

namespace Mox {

struct Place {
  const char* function;
  unsigned line;

  static constexpr Place here(const char* function = __builtin_FUNCTION(),
                              unsigned line = __builtin_LINE()) {
    return {function, line};
  }
};

}  // namespace Mox
