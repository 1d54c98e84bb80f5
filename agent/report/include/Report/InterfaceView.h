// The part of an interface's state that reports show. When its querier does not run, its times have
// no meaning and are left out.
#pragma once

#include <string>

#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Ilvo/IpAddr.h>
#include <Intake/IntakeConfig.h>
#include <Intake/IntakeStatus.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>
#include <Report/InterfaceState.h>

namespace Agent {

struct InterfaceView {
  std::string name;
  Ilvo::IpAddr address;
  Mox::Ptr<const Gmp::Igmp::QuerierStatus> status;
  bool running = true;
  bool isCopy = false;             // of a process's state that does not publish address and running
  Mox::Seconds electedTime = 0.0;  // since when the elected querier is; 0 when that is not known
  // Null where no agent receives packets.
  Mox::Ptr<const InterfaceState> state = {};
  Mox::Ptr<const IntakeConfig> intake = {};
  Mox::Ptr<const IntakeStatus> intakeStatus = {};
};

}  // namespace Agent
