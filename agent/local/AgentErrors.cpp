#include <Local/AgentErrors.h>

#include <fmt/format.h>

namespace Agent {

std::string notPermittedText(const std::string& what, const char* option) {
  return fmt::format(
      "not permitted to {}: be root or the user that the agent runs as, or a member of the group "
      "that its {} names",
      what, option);
}

std::string notUnderstoodText(const std::string& path, const std::string& why) {
  return fmt::format(
      "what serves {} is not understood: {}; have the agent and this command from the same version "
      "of igmpq",
      path, why);
}

std::string silenceText(const std::string& path, std::chrono::seconds silence) {
  return fmt::format("the agent at {} says nothing for {} s: it may hang", path, silence.count());
}

std::string agentGoneText() { return "the agent has gone"; }

std::string noInterfaceText(const std::string& name, const std::string& known) {
  return fmt::format("the agent has no interface {}; it has: {}", name, known);
}

}  // namespace Agent
