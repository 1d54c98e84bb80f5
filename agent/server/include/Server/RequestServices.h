// The agent as the handlers of requests see it. It outlives them.
#pragma once

#include <functional>
#include <map>
#include <string>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <MoxBase/Ptr.h>
#include <Server/ObjectRoots.h>

namespace Agent {

struct RequestServices {
  // By interface; null where the interface cannot carry a querier now.
  using Queriers = std::map<std::string, Mox::Ptr<Gmp::Igmp::QuerierSm>>;

  std::function<Queriers()> queriers;
  // All objects that can be read by path.
  std::function<ObjectRoots()> roots;
  // Turns the wheel to the real now. Called before and after a request changes something.
  std::function<void()> turn;
};

}  // namespace Agent
