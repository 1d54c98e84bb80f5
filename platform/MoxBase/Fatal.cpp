#include <MoxBase/Fatal.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <limits.h>
#include <poll.h>
#include <unistd.h>

namespace Mox {

namespace {
FatalHook fatalHook = nullptr;
constexpr int patienceMs = 100;
}  // namespace

void fatalHookIs(FatalHook hook) { fatalHook = hook; }

// A descriptor that is writable takes at least this much without waiting.
void fatalLine(std::string_view line) {
  pollfd wait{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  if (poll(&wait, 1, patienceMs) <= 0 || (wait.revents & POLLOUT) == 0) return;
  const ssize_t written =
      ::write(STDERR_FILENO, line.data(), std::min<size_t>(line.size(), PIPE_BUF));
  static_cast<void>(written);  // there is nobody left to report a failure to
}

void fatal(const char* modelFile, const char* expression, Place where) {
  char line[1024];
  const int length = std::snprintf(line, sizeof(line), "%s:%u: %s: Assertion '%s' failed.\n",
                                   modelFile, where.line, where.function, expression);
  fatalLine({line, std::min(static_cast<size_t>(length), sizeof(line) - 1)});
  if (FatalHook hook = std::exchange(fatalHook, nullptr)) hook();
  std::abort();
}

}  // namespace Mox
