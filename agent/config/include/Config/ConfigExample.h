// A configuration file that lists every key with its meaning, unit, range and default, all of them
// commented out: the file that is installed.
#pragma once

#include <string>

namespace Agent {

std::string configExample();

}  // namespace Agent
