// The option `--socket` of the verbs that talk to a running agent.
#pragma once

#include <string>

#include <CLI/App.hpp>

namespace Igmpq {

void addSocketOption(CLI::App& options, std::string& socket);
// The path that was given, or that of a running agent.
std::string socketPath(const std::string& given);
// The path of the same agent's request socket.
std::string requestPath(const std::string& given);

}  // namespace Igmpq
