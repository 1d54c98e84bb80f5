// What the service manager shows of the agent.
#include "AgentLoopImpl.h"
#include "ServiceStatus.h"

namespace Agent {

std::string AgentLoop::Impl::serviceStatus() const {
  ServiceCounts counts{.interfaces = queriers_.size()};
  for (const auto& querier : queriers_) {
    const Gmp::Igmp::QuerierStatus& status = *querier->status();
    const bool isElected = status.state() == Gmp::Igmp::QuerierStatus::querierStateQuerier;
    if (querier->running() && isElected) ++counts.elected;
    counts.groups += status.group().size();
  }
  return serviceStatusText(counts);
}

}  // namespace Agent
