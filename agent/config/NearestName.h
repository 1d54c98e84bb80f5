// The name that was probably meant by one that is not known.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// Empty when none differs in a third of its letters or less.
std::string nearestName(std::string_view given, const std::vector<std::string>& names);

}  // namespace Agent
