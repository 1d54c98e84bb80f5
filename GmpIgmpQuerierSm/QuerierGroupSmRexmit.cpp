// Specific queries and their retransmission (RFC 3376 6.6.3): which are pending, and sending them.
#include <stdlib.h>

#include <vector>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Mox/ActivityClock.h>
#include "SendQuery.h"

namespace Gmp::Igmp {

using Mox::trace;

// Needs no Ptr to its machine: it uses none after a notification that has ended the source.
void QuerierGroupSm::toRexmitState(IpAddr addr) {
  trace<8>(machineTrace, *this, "::", "toRexmitState", "( ", addr, " )");
  const Ptr<QuerierGroupSourceSm> sourceSm = source(addr);
  if (!sourceSm || sourceSm->sourceTimerState() == timerDisabled) return;
  const U32 count = config().lastMemberQueryCount();
  if (count == 0) {
    sourceSm->doSetTimer(0.0);
    return;
  }
  const Seconds limit = lastMemberQueryTime();
  if (limit > sourceSm->sourceTimerRemaining()) {
    if (rexmitSource_.contains(addr)) return;
  } else {
    sourceSm->doSetTimer(limit);
  }
  trace<6>(machineTrace, "Setting number of retransmits of ", addr, " to ", count);
  sourceSm->rexmitsIs(count);
  // A notifiee of these changes may have removed the source: no query is pending for it then.
  if (!sourceSm->ended()) rexmitSourceIs(addr, true);
}

void QuerierGroupSm::handleRexmitTimer() {
  if (!reactsToTimers()) return;
  const Ptr<QuerierGroupSm> alive(this);
  const Ptr<QuerierSm> querier(&querierSm());
  trace<8>(machineTrace, *this, "::", "handleRexmitTimer", "()", " @ ", Mox::now());
  if (attrLogClogged()) {
    trace<3>(machineTrace, "Reschedule rexmit timer as attr log will overflow.");
    const double r = drand48();
    doSetTimer(rexmitTimerId, r + r);
    return;
  }
  trace<6>(machineTrace, "Rexmit Timer for ", group_, " on ", interfaceName(), " expired");
  if (rexmitGroupQuery_ != 0) sendGroupSpecificQuery(querier.get(), group_);
  if (ended()) return;  // a notifiee of the query may have ended the group
  if (querier->querierStatus()->state() != QuerierStatus::querierStateQuerier) {
    trace<6>(machineTrace, "Don't send query because we are not the querier");
  } else if (groupStatus_->compatibilityMode() == igmpVersion3) {
    sendSourceQueries(*querier);
  }
  if (ended()) return;
  if (config().lastMemberQueryInterval() == 0.0) {
    trace<6>(machineTrace, "Disabling timer, since LMQI is 0");
    doSetTimer(rexmitTimerId, never);
  } else if (queriesPending()) {
    doSetTimer(rexmitTimerId, config().lastMemberQueryInterval());
  } else {
    trace<6>(machineTrace, "Disabling timer, since there are no pending retransmissions");
    doSetTimer(rexmitTimerId, never);
  }
}

// Queries for sources that are about to time out have the S flag clear. Those for sources that
// hosts have confirmed meanwhile have it set, and wait until no group-specific query is pending:
// other routers must not lower their timers for them.
void QuerierGroupSm::sendSourceQueries(QuerierSm& querier) {
  requireOwnAddress(querier);  // before any count moves
  const Seconds limit = lastMemberQueryTime();
  std::vector<IpAddr> clear;
  std::vector<IpAddr> set;
  for (const IpAddr addr : rexmitSource_.keys()) {
    const Ptr<QuerierGroupSourceSm> sourceSm = source(addr);
    // The source was removed, or removed and created again: nothing is pending for it.
    if (!sourceSm || sourceSm->rexmits() == 0) {
      rexmitSourceDel(addr);
      continue;
    }
    if (limit >= sourceSm->sourceTimerRemaining()) {
      clear.push_back(addr);
    } else if (rexmitGroupQuery_ == 0) {
      set.push_back(addr);
    }
    trace<6>(machineTrace, "Decrementing retransmissions for source ", addr, " on ",
             querier.name());
    sourceSm->rexmitsDec(1);
    if (sourceSm->rexmits() == 0) {
      trace<6>(machineTrace, "Final retransmission for source ", addr, " on ", querier.name(),
               " removing from list");
      rexmitSourceDel(addr);
    }
  }
  if (!ended()) sendGroupAndSourceSpecificQuery(&querier, group_, clear, set);
}

}  // namespace Gmp::Igmp
