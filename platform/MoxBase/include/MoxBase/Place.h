// A place in the source: by default the function and line of the caller.
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
