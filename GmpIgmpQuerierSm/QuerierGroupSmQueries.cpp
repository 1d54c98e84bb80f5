// Specific queries of other routers (RFC 3376 6.6.1): a group or source that they query must end
// here when it ends there, so timers are lowered to theirs, and never raised.
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>

namespace Gmp::Igmp {

using Mox::trace;

namespace {

// The sender's last member query time, with its robustness as the count of its queries.
Seconds lastMemberQueryTimeOf(const IgmpQuery& query) {
  return query.maxResponseSeconds() * query.qrv;
}

}  // namespace

void QuerierGroupSm::handleRxGSQuery(const IgmpQuery& query) {
  trace<8>(machineTrace, *this, "::", "handleRxGSQuery", "( ", query, " )");
  lowerMembershipTimer(lastMemberQueryTimeOf(query));
}

// The old format carries neither count nor interval: the local configuration stands in for them.
void QuerierGroupSm::handleRxGSQuery() {
  trace<8>(machineTrace, *this, "::", "handleRxGSQuery", "()");
  lowerMembershipTimer(lastMemberQueryTime());
}

void QuerierGroupSm::handleRxGSSQuery(const IgmpQuery& query) {
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleRxGSSQuery", "( ", query, " )");
  const Seconds limit = lastMemberQueryTimeOf(query);
  for (const IpAddr addr : query.source) {
    const Ptr<QuerierGroupSourceSm> sourceSm = source(addr);
    if (sourceSm && sourceSm->sourceTimerRemaining() > limit) sourceSm->doSetTimer(limit);
  }
}

}  // namespace Gmp::Igmp
