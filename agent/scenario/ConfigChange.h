// Changes of a configuration, read from an object of attribute names and values, in the order
// written.
#pragma once

#include <functional>
#include <vector>

#include <GmpIgmpQuerier/QuerierConfig.h>

#include "Keys.h"

namespace Agent::Scenario {

using ConfigChange = std::function<void(Gmp::Igmp::QuerierConfig&)>;

// One for each key; a StepError for an attribute that does not exist or has no setter, and for a
// value of the wrong type.
std::vector<ConfigChange> readConfigChanges(const Json& object, const char* key);

}  // namespace Agent::Scenario
