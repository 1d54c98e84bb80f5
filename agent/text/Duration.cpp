#include "Duration.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace Agent {

// Two units at most: the JSON has the exact value.
std::string durationText(Mox::Seconds seconds) {
  if (!std::isfinite(seconds)) return "-";
  const double tenths = std::round(std::max(seconds, 0.0) * 10.0);
  if (tenths < 100.0) return fmt::format("{:.1f}s", tenths / 10.0);
  const auto whole = static_cast<Mox::U64>(std::round(seconds));
  if (whole < 60) return fmt::format("{}s", whole);
  if (whole < 3600) return fmt::format("{}m{:02}s", whole / 60, whole % 60);
  if (whole < 86400) return fmt::format("{}h{:02}m", whole / 3600, whole % 3600 / 60);
  return fmt::format("{}d{:02}h", whole / 86400, whole % 86400 / 3600);
}

}  // namespace Agent
