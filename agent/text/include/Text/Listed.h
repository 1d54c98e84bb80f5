// A list of names as text, for messages that list the existing ones.
#pragma once

#include <string>

namespace Agent {

// "a, b, c", or "none".
template <class Names>
std::string listed(const Names& names) {
  std::string text;
  for (const auto& name : names) {
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text.empty() ? "none" : text;
}

}  // namespace Agent
