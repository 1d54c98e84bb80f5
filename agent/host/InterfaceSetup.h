// The configuration with which a querier on one interface is created.
#pragma once

#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Ilvo/IntfBoundaryStatus.h>
#include <Intake/IntakeConfig.h>
#include <MoxBase/Ptr.h>

namespace Agent {

struct InterfaceSetup {
  std::string name;
  Mox::Ptr<Gmp::Igmp::QuerierConfig> config;
  Mox::Ptr<IntakeConfig> intake;
  Mox::Ptr<const Ilvo::IntfBoundaryStatus> boundary = {};  // null for none
  // What an agent before has left; null for nothing.
  Mox::Ptr<Gmp::Igmp::QuerierStatus> kept = {};
};

}  // namespace Agent
