// The parts of the agent that the handlers of requests use. They outlive the handlers.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Ilvo/IpAddr.h>
#include <MoxBase/Ptr.h>
#include <Server/ConfigServices.h>
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
  // Ends the groups of one interface, or of all for an empty name; all of them, or only that one.
  // Returns how many there were. Throws std::runtime_error where that is not possible now.
  std::function<size_t(const std::string& interface, std::optional<Ilvo::IpAddr> group)>
      clearGroups;
  ConfigServices config = {};
  // How many clients follow the traces now.
  std::shared_ptr<size_t> followers = std::make_shared<size_t>(0);
};

}  // namespace Agent
