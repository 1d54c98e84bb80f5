// Sees every notification of one querier's status, its groups and their sources, and writes those
// as changes when that is wanted.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/Notifiee.h>

#include "Observations.h"

namespace Agent::Scenario {

class StatusObserver {
 public:
  // `onQueryCounted` is called when one of the counters of sent queries has changed.
  StatusObserver(std::string interface, Mox::Ptr<Gmp::Igmp::QuerierStatus> status,
                 Observations& observations, bool writeChanges,
                 std::function<void()> onQueryCounted);
  ~StatusObserver();

 private:
  class StatusWatch;
  class GroupWatch;
  class SourceWatch;

  std::unique_ptr<StatusWatch> watch_;
};

}  // namespace Agent::Scenario
