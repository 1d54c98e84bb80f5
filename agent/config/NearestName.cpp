#include "NearestName.h"

#include <algorithm>
#include <numeric>

namespace Agent {

namespace {

// How many letters must be changed, added or taken away to make one of the other.
size_t differences(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string nearestName(std::string_view given, const std::vector<std::string>& names) {
  constexpr size_t longest = 64;  // a name that is longer is none of ours
  std::string nearest;
  size_t least = longest;
  if (given.size() > longest) return nearest;
  for (const std::string& name : names) {
    const size_t differs = differences(given, name);
    if (differs >= least || differs > name.size() / 3) continue;
    least = differs;
    nearest = name;
  }
  return nearest;
}

}  // namespace Agent
