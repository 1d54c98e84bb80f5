// What requests are about: the agent as those who answer them see it. It outlives them.
#pragma once

#include <functional>
#include <map>
#include <string>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <MoxBase/Ptr.h>
#include <Server/AttrPath.h>

namespace Agent {

struct RequestServices {
  // By interface; null where the interface cannot carry a querier now.
  using Queriers = std::map<std::string, Mox::Ptr<Gmp::Igmp::QuerierSm>>;

  std::function<Queriers()> queriers;
  // All that can be read by path.
  std::function<ObjectRoots()> roots;
  // Turns the wheel to the real now. Called around whatever a request changes.
  std::function<void()> turn;
};

}  // namespace Agent
