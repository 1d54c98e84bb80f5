// The end of many groups, in steps: on request, and of those of a querier that has ended.
#include "InterfaceQuerier.h"

#include <Mox/ActivityClock.h>

namespace Agent {

using Ilvo::IpAddr;

namespace {

// Of a step, in sources that end.
constexpr size_t groupCost = 8;
constexpr size_t mostClearCost = 8192;

}  // namespace

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
  for (size_t cost = 0; cost < mostClearCost && !clearing_.empty(); clearing_.pop_front()) {
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

// Where the groups of a part cost too much for one step, the next one begins with the same part.
void InterfaceQuerier::handleRetireTimer() {
  Gmp::Igmp::QuerierSm& querier = *retired_.front();
  std::vector<IpAddr> part;
  Mox::U64 next = querier.groupSm().walk(retireBookmark_, mostClearCost / groupCost,
                                         [&](IpAddr group, const auto&) { part.push_back(group); });
  size_t cost = 0;
  for (const IpAddr group : part) {
    if (cost >= mostClearCost) {
      next = retireBookmark_;
      break;
    }
    cost += groupCost + querier.groupSm(group)->source().size();
    querier.groupSmDel(group);
  }
  retireBookmark_ = next;
  if (querier.groupSm().empty()) {
    retired_.pop_front();
    retireBookmark_ = 0;
  }
  retireTimer_.timeMinIs(retired_.empty() ? Mox::never : Mox::now());
}

void InterfaceQuerier::end() {
  isEnding_ = true;
  stopQuerier();
  clearGroups(std::nullopt);
}

}  // namespace Agent
