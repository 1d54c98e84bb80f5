// The objects at which the paths of `igmpq get` begin, by the first part of the path.
//
//   const ObjectRoots roots{{"status/eth0", status}, {"querierSm/eth0", querier}};
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <Mox/Object.h>
#include <MoxBase/Ptr.h>

namespace Agent {

using ObjectRoots = std::vector<std::pair<std::string, Mox::Ptr<const Mox::Object>>>;

}  // namespace Agent
