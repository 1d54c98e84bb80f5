#include <MoxBase/Fatal.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Mox {

namespace {
FatalHook fatalHook = nullptr;
}

void fatalHookIs(FatalHook hook) { fatalHook = hook; }

void fatal(const char* modelFile, const char* expression, Place where) {
  std::fprintf(stderr, "%s:%u: %s: Assertion '%s' failed.\n", modelFile, where.line, where.function,
               expression);
  std::fflush(stderr);
  if (FatalHook hook = std::exchange(fatalHook, nullptr)) hook();
  std::abort();
}

}  // namespace Mox
