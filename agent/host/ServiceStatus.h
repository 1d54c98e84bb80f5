// The line about the agent that a service manager shows: "3 interfaces, querier on 2, 57 groups".
#pragma once

#include <cstddef>
#include <string>

namespace Agent {

struct ServiceCounts {
  std::size_t interfaces = 0;
  std::size_t elected = 0;  // those whose elected querier this agent is
  std::size_t groups = 0;
};

std::string serviceStatusText(const ServiceCounts& counts);

}  // namespace Agent
