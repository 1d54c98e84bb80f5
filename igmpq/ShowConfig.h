// `igmpq show config`: the settings of a running agent, each with its origin.
#pragma once

#include <string>
#include <vector>

namespace Igmpq {

// Of the interfaces named, or of all and of the agent itself; `socket` is that of requests.
void showConfig(const std::string& socket, const std::vector<std::string>& interfaces, bool json);

}  // namespace Igmpq
