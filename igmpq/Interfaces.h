// The interfaces that a command line or a configuration asks for, out of those of this machine.
#pragma once

#include <string>
#include <vector>

#include <Link/LinkTable.h>

namespace Igmpq {

// Throws BadUse for one that this machine does not have or that cannot carry a querier.
void checkFit(const Agent::LinkTable& links, const std::string& name);
// Those that can carry a querier, up or down.
std::vector<std::string> fitNames(const Agent::LinkTable& links);
// Those that are up and have an address.
std::vector<std::string> usableNames(const Agent::LinkTable& links);

}  // namespace Igmpq
