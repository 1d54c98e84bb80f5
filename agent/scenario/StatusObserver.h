// Writes every notification of one querier's status, its groups and their sources as a change.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Mox/Notifiee.h>

#include "Observations.h"

namespace Agent::Scenario {

class StatusObserver {
 public:
  StatusObserver(std::string interface, Mox::Ptr<Gmp::Igmp::QuerierStatus> status,
                 Observations& observations);
  ~StatusObserver();

 private:
  class StatusWatch;
  class GroupWatch;
  class SourceWatch;

  std::unique_ptr<StatusWatch> watch_;
};

}  // namespace Agent::Scenario
