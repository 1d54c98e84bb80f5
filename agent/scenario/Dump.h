// The whole state of one interface, from the attribute tables where there are some.
#pragma once

#include "Keys.h"
#include "World.h"

namespace Agent::Scenario {

void writeDump(World& world, const Interface& interface);

}  // namespace Agent::Scenario
