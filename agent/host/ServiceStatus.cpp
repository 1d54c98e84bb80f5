#include "ServiceStatus.h"

#include <fmt/format.h>

namespace Agent {

namespace {

std::string counted(std::size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

}  // namespace

std::string serviceStatusText(const ServiceCounts& counts) {
  return fmt::format("{}, querier on {}, {}", counted(counts.interfaces, "interface"),
                     counts.elected, counted(counts.groups, "group"));
}

}  // namespace Agent
