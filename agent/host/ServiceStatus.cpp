#include "ServiceStatus.h"

#include <Text/Counted.h>
#include <fmt/format.h>

namespace Agent {

std::string serviceStatusText(const ServiceCounts& counts) {
  return fmt::format("{}, querier on {}, {}", counted(counts.interfaces, "interface"),
                     counts.elected, counted(counts.groups, "group"));
}

}  // namespace Agent
