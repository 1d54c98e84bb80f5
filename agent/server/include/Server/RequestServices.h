// The parts of the agent that the handlers of requests use. They outlive the handlers.
#pragma once

#include <functional>
#include <map>
#include <string>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <MoxBase/Ptr.h>
#include <Server/ObjectRoots.h>

namespace Agent {

struct RequestServices {
  // By interface; null while no querier can run on the interface.
  using Queriers = std::map<std::string, Mox::Ptr<Gmp::Igmp::QuerierSm>>;

  std::function<Queriers()> queriers;
  // All objects that can be read by path.
  std::function<ObjectRoots()> roots;
  // Turns the wheel to the current time. Called before and after a request changes something.
  std::function<void()> turn;
};

}  // namespace Agent
