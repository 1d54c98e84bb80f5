#include <Agent/AttrLogSocket.h>

#include <cstdlib>

#include <unistd.h>

namespace Agent {

std::string attrLogSocketPath() {
  if (geteuid() == 0) return "/run/igmpq/attrlog.sock";
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || *runtime == '\0') return {};
  return std::string(runtime) + "/igmpq/attrlog.sock";
}

}  // namespace Agent
