// Version 1 and 2 reports and leaves (RFC 3376 7.3.2, RFC 2236 3).
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>

namespace Gmp::Igmp {

using Mox::trace;

// Version 1 hosts cannot leave, so this settles any question that is pending: the group has members
// for a group membership interval.
void QuerierGroupSm::handleRxV1Report() {
  if (ended()) return;
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleRxV1Report", "()");
  const IpAddr reporter = querierSm().pktSrc();
  compatibilityModeIs(igmpVersion1);
  doSetTimer(v1MembershipTimerId, groupMembershipInterval());
  filterModeIs(filterModeExclude);
  lastReporterIs(reporter);
  sourceDelAll();
  rexmitSourceDelAll();
  doSetTimer(membershipTimerId, groupMembershipInterval());
  doSetTimer(rexmitTimerId, never);
  rexmitGroupQueryIs(0);
}

// Deliberately leaves a group-specific query sequence running: the report has refreshed the group
// timer, and the queries still due can only find more members.
void QuerierGroupSm::handleRxV2Report() {
  if (ended()) return;
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleRxV2Report", "()");
  lastReporterIs(querierSm().pktSrc());
  if (groupStatus_->compatibilityMode() != igmpVersion1) compatibilityModeIs(igmpVersion2);
  doSetTimer(v2MembershipTimerId, groupMembershipInterval());
  filterModeIs(filterModeExclude);
  sourceDelAll();
  rexmitSourceDelAll();
  doSetTimer(membershipTimerId, groupMembershipInterval());
}

// Starts to query whether any member is left; a member reports within the last member query time.
// handleRexmitTimer decides whether this router sends the queries.
void QuerierGroupSm::handleRxLeave() {
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleRxLeave", "()");
  if (groupStatus_->compatibilityMode() == igmpVersion1) {
    return;  // version 1 hosts leave silently: with one present, a leave proves nothing (7.3.2)
  }
  askSourcesNotIn({});
  if (groupStatus_->filterMode() == filterModeExclude) {
    rexmitGroupQueryIs(lastMemberQueryCount());
    lowerMembershipTimer(lastMemberQueryTime());
  }
  doSetTimer(rexmitTimerId, 0.0);  // the first query leaves at the next turn of the wheel
}

// The group timer is only ever lowered here: a group that is being queried must not live longer.
// Arming the timer is the last act, here and in the callers without a Ptr to their machine.
void QuerierGroupSm::lowerMembershipTimer(Seconds limit) {
  if (membershipTimerRemaining() > limit) doSetTimer(membershipTimerId, limit);
}

}  // namespace Gmp::Igmp
