// The registry of group machines, and their rebuilding from a status that holds groups already.
#include <utility>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Mox/ActivityClock.h>
#include <Mox/Errors.h>

namespace Gmp::Igmp {

using Mox::trace;

namespace {

// How long one batch of the rebuilding may delay everything else.
constexpr Seconds batchQuantum = 0.005;

void requireWheel(const char* attribute, const QuerierSm::Wheel& wanted,
                  const QuerierSm::Wheel& current) {
  if (wanted != current) {
    throw Mox::NameInUseError(attribute, wheelText(wanted), wheelText(current));
  }
}

}  // namespace

Ptr<QuerierGroupSm> getOrCreateGroupSm(Ptr<QuerierSm> querier, IpAddr group) {
  if (const Ptr<QuerierGroupSm>* found = querier->groupSm().find(group)) {
    (*found)->prefetch();
    trace<8>(machineTrace, "Found groupSm for group ", group);
    return *found;
  }
  trace<3>(machineTrace, "Create groupSm for group ", group);
  if (querier->querierStatus()->group(group)) {
    querier->handleQuerierGroupStatus(group);
    if (Ptr<QuerierGroupSm> rebuilt = querier->groupSm(group)) return rebuilt;
    // The entry was stale and has been deleted: the group is a new one.
  }
  const QuerierSm::Wheel& wheel = querier->queryIntervalTimer();
  return querier->groupSmIs(group, wheel, wheel, wheel, wheel);
}

Ptr<QuerierGroupSm> QuerierSm::groupSmIs(IpAddr group, const Wheel& membership, const Wheel& v1,
                                         const Wheel& v2, const Wheel& rexmit) {
  const Ptr<QuerierSm> alive(this);
  if (Ptr<QuerierGroupSm> found = groupSm(group)) {
    requireWheel("_membershipTimer", membership, found->membershipTimer());
    requireWheel("_v1MembershipTimer", v1, found->v1MembershipTimer());
    requireWheel("_v2MembershipTimer", v2, found->v2MembershipTimer());
    requireWheel("_rexmitTimer", rexmit, found->rexmitTimer());
    return found;
  }
  Ptr<QuerierGroupSm> added = QuerierGroupSmIs(group, membership, v1, v2, rexmit, this);
  // A notifiee of the status entry may have handed in a report for the same group.
  if (Ptr<QuerierGroupSm> first = groupSm(group)) {
    added->end();
    return first;
  }
  groupSm_.insert(group, added);
  handleGroupSm(group);
  groupSmNotify(group);
  return added;
}

void QuerierSm::groupSmDel(IpAddr group) {
  const Ptr<QuerierGroupSm> removed = groupSm(group);
  if (!removed) return;
  const Ptr<QuerierSm> alive(this);
  groupSm_.erase(group);
  removed->end();
  handleGroupSm(group);
  groupSmNotify(group);
}

void QuerierSm::groupSmDelAll() {
  const Ptr<QuerierSm> alive(this);
  for (const IpAddr group : groupSm_.keys()) groupSmDel(group);
}

// Deleting the status entry is its last act, so it needs no Ptr to its machine.
void QuerierSm::handleGroupSm(IpAddr group) {
  if (!initialized_) return;
  trace<8>(machineTrace, *this, "::", "handleGroupSm", "()");
  if (groupSm_.contains(group)) return;
  trace<3>(machineTrace, "Delete group ", group, " from status ", name());
  querierStatus_->groupDel(group);
}

void QuerierSm::handleQuerierGroupStatus() {
  if (!initialized_) return;
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleQuerierGroupStatus", "()");
  const Seconds deadline = Mox::now() + batchQuantum;
  const QuerierStatus::GroupMap& groups = querierStatus_->group();
  auto at = groups.lowerBound(initGroupStatusBookmark_);
  while (at != groups.end()) {
    handleQuerierGroupStatus(at.key());
    ++at;
    if (at == groups.end()) break;
    if (Mox::now() >= deadline || debugYieldAfterOne_ || attrLogClogged()) {
      yieldGroupStatus(at.key());
      return;
    }
  }
  trace<6>(machineTrace, *this, "::", "handleQuerierGroupStatus", "()",
           ": finished processing groups");
  initGroupStatusBookmarkIs(IpAddr::ipAddrZero());
  initGroupStatusTimer_.timeMinIs(never);
}

// Packets and timers get their turn before the next batch.
void QuerierSm::yieldGroupStatus(IpAddr next) {
  initGroupStatusBookmarkIs(next);
  trace<6>(machineTrace, *this, "::", "handleQuerierGroupStatus", "()",
           ": giving up processor for now, setting bookmark to ", next);
  initGroupStatusTimer_.timeMinIs(Mox::now());
}

// Group and sources get a full group membership interval, whatever was left of it: hosts may have
// reported while no querier was there to receive the reports.
void QuerierSm::handleQuerierGroupStatus(IpAddr group) {
  if (!initialized_) return;
  const Ptr<QuerierSm> alive(this);
  const Ptr<QuerierGroupStatus> status = querierStatus_->group(group);
  if (!status) return;
  if (groupSm_.contains(group)) {
    trace<6>(machineTrace, *this, "::", "handleQuerierGroupStatus", "()",
             ": skipping processing group ", group);
    return;
  }
  trace<6>(machineTrace, *this, "::", "handleQuerierGroupStatus", "()", ": processing group ",
           group);
  if (dropStaleGroup(*status)) return;
  if (querierStatus_->group(group) != status) return;  // deleted by a notifiee of a source
  const Wheel& wheel = queryIntervalTimer();
  const Ptr<QuerierGroupSm> groupSm = groupSmIs(group, wheel, wheel, wheel, wheel);
  rebuildTimers(groupSm, *status);
  rebuildSources(groupSm, *status);
}

// In INCLUDE mode no host wants an expired source, nor a group without sources.
bool QuerierSm::dropStaleGroup(QuerierGroupStatus& status) {
  if (status.filterMode() != filterModeInclude) return false;
  for (const IpAddr source : status.source().keys()) {
    const Ptr<QuerierSourceStatus> entry = status.source(source);
    if (!entry || !entry->expired()) continue;
    trace<6>(machineTrace, "Delete source ", source, " from status");
    status.sourceDel(source);
  }
  if (!status.source().empty()) return false;
  trace<6>(machineTrace, "Delete group ", status.groupAddr(), " from status");
  querierStatus_->groupDel(status.groupAddr());
  return true;
}

void QuerierSm::rebuildTimers(const Ptr<QuerierGroupSm>& groupSm,
                              const QuerierGroupStatus& status) {
  const Seconds interval = querierStatus_->groupMembershipInterval();
  if (status.filterMode() == filterModeExclude) {
    groupSm->doSetTimer(QuerierGroupSm::membershipTimerId, interval);
  }
  if (status.compatibilityMode() == igmpVersion1) {
    groupSm->doSetTimer(QuerierGroupSm::v1MembershipTimerId, interval);
  } else if (status.compatibilityMode() == igmpVersion2) {
    groupSm->doSetTimer(QuerierGroupSm::v2MembershipTimerId, interval);
  }
}

// An expired source gets a machine whose timer stays disabled.
void QuerierSm::rebuildSources(const Ptr<QuerierGroupSm>& groupSm,
                               const QuerierGroupStatus& status) {
  const Seconds interval = querierStatus_->groupMembershipInterval();
  for (const IpAddr addr : status.source().keys()) {
    const Ptr<QuerierSourceStatus> source = status.source(addr);
    if (!source || groupSm->ended()) continue;  // removed by a notifiee of another one
    const bool expired = source->expired();     // the machine's creation sets it
    const Ptr<QuerierGroupSourceSm> sourceSm = getOrCreateSourceSm(groupSm, addr);
    if (!expired) sourceSm->doSetTimer(interval);
  }
}

}  // namespace Gmp::Igmp
