// The multicast boundary: groups that the querier must neither learn nor ask about on this
// interface.
#include <GmpIgmpQuerier/ModelLogs.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>

namespace Gmp::Igmp {

using Mox::trace;

// A prefix of the other family never matches.
bool QuerierSm::checkMcastIntfBoundaryStatus(IpAddr group) const {
  trace<6>(igmpPacketTrace, "checkMcastIntfBoundaryStatus for group : ", group);
  if (!mcastBoundaryIntfStatus_) return false;
  for (const auto& [prefix, value] : mcastBoundaryIntfStatus_->boundary()) {
    if (prefix.contains(group)) return true;
  }
  return false;
}

}  // namespace Gmp::Igmp
