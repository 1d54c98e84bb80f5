#include "SocketOption.h"

#include <Local/AttrLogSocket.h>

namespace Igmpq {

void addSocketOption(CLI::App& options, std::string& socket) {
  options.add_option("--socket", socket, "the running agent's")
      ->type_name("PATH")
      ->default_str(Agent::servedAttrLogSocketPath());
}

std::string socketPath(const std::string& given) {
  return given.empty() ? Agent::servedAttrLogSocketPath() : given;
}

std::string requestPath(const std::string& given) {
  return Agent::requestSocketPath(socketPath(given));
}

}  // namespace Igmpq
