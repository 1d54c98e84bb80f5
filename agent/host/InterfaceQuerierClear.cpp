// The end of groups on request.
#include "InterfaceQuerier.h"

#include <Mox/ActivityClock.h>

namespace Agent {

using Ilvo::IpAddr;

// While no querier runs, or it has not taken it over yet, a group is in the status alone.
size_t InterfaceQuerier::clearGroups(std::optional<IpAddr> only) {
  size_t groups = 0;
  if (only) {
    groups = status_->group(*only) ? 1 : 0;
    if (groups != 0) clearing_.push_back(*only);
  } else {
    clearing_.clear();  // all that an earlier request has left is among the groups
    for (auto at = status_->group().begin(); at != status_->group().end(); ++at) {
      clearing_.push_back(at.key());
    }
    groups = clearing_.size();
  }
  handleClearTimer();
  watcher_.flush();
  return groups;
}

// Packets and timers have their turn before the next step.
void InterfaceQuerier::handleClearTimer() {
  constexpr size_t groupCost = 8;  // in sources that end
  constexpr size_t mostCost = 8192;
  for (size_t cost = 0; cost < mostCost && !clearing_.empty(); clearing_.pop_front()) {
    const IpAddr group = clearing_.front();
    if (const auto status = status_->group(group)) cost += groupCost + status->source().size();
    if (querier_) {
      querier_->groupSmDel(group);
      // A hand-over must not wait for a group that is gone.
      querier_->handleGroupRexmit(group, Gmp::Igmp::timerDisabled);
    }
    status_->groupDel(group);
  }
  clearTimer_.timeMinIs(clearing_.empty() ? Mox::never : Mox::now());
}

void InterfaceQuerier::end() {
  isEnding_ = true;
  stopQuerier();
  clearGroups(std::nullopt);
}

}  // namespace Agent
