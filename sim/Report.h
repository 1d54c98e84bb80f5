// The counts of a run for people: what was simulated, which states were reached, which behaviour
// was recognised, and what was never reached.
#pragma once

#include <string>

#include "Findings.h"

namespace Sim {

std::string textOf(const Breach& breach);
std::string textOf(const Counts& counts);

}  // namespace Sim
