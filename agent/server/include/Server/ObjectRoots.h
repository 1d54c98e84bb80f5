// The objects at which the paths of `igmpq get` begin, by the names of these paths.
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
