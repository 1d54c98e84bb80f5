// The part of an interface's state that reports show. When its querier does not run, its times have
// no meaning and are left out.
#pragma once

#include <string>

#include <GmpIgmpQuerier/QuerierConfig.h>
#include <GmpIgmpQuerier/QuerierStatus.h>
#include <Ilvo/IpAddr.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Agent {

struct InterfaceView {
  std::string name;
  Ilvo::IpAddr address;
  Mox::Ptr<const Gmp::Igmp::QuerierConfig> config;
  Mox::Ptr<const Gmp::Igmp::QuerierStatus> status;
  bool running = true;
  bool isCopy = false;             // from a process that does not publish address and running
  Mox::Seconds electedTime = 0.0;  // of the last change of the elected querier; 0 when not known
};

}  // namespace Agent
