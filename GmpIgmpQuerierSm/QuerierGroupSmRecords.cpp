// Version 3 group records: the router's filter-mode table (RFC 3376 6.4). A are the group's
// sources, B the record's. Where a row departs from the table in the RFC, it does so on purpose.
#include <algorithm>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <MoxBase/Fatal.h>

namespace Gmp::Igmp {

using Mox::trace;

namespace {

enum GroupRecordType : U8 {
  modeIsInclude = 1,
  modeIsExclude = 2,
  changeToInclude = 3,
  changeToExclude = 4,
  allowNewSources = 5,
  blockOldSources = 6,
};

bool isIn(std::span<const IpAddr> sorted, IpAddr addr) {
  return std::binary_search(sorted.begin(), sorted.end(), addr);
}

// Without 0.0.0.0, which no query can name. Sorted, it is the first.
std::span<const IpAddr> sourcesOf(const IgmpGroupRecord& record) {
  const std::span<const IpAddr> all(record.source.begin(), record.source.end());
  return !all.empty() && all.front().isZero() ? all.subspan(1) : all;
}

}  // namespace

void QuerierGroupSm::handleRxV3Report(const IgmpGroupRecord& record) {
  if (ended()) return;
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleRxV3Report", "( ", record, " )");
  const IgmpFilterMode mode = groupStatus_->filterMode();
  trace<6>(machineTrace, "Current state for ", group_, " is ", mode, ". Report is ", record.rType);
  groupStatus_->lastReporterIs(querierSm().pktSrc());
  Mox::fatalUnless(mode == filterModeInclude || mode == filterModeExclude, machineModelFile,
                   "filterMode");
  if (!applyRecord(record.rType.value(), sourcesOf(record))) {
    trace<6>(machineTrace, "Received invalid group record type ", record.rType);
  }
  closeRecord();
}

// False for a type that no record has.
bool QuerierGroupSm::applyRecord(U8 type, AddrList b) {
  const IgmpVersion compatibility = groupStatus_->compatibilityMode();
  const bool include = groupStatus_->filterMode() == filterModeInclude;
  switch (type) {
    case modeIsInclude:
    case allowNewSources: allowSources(b); return true;
    case modeIsExclude: include ? includeIsExclude(b) : excludeIsExclude(b); return true;
    case changeToInclude:
      // A version 3 leave proves nothing while version 1 hosts are present (7.3.2).
      if (compatibility != igmpVersion1) include ? includeToInclude(b) : excludeToInclude(b);
      return true;
    case changeToExclude:
      if (compatibility != igmpVersion3) {
        olderHostsToExclude();
      } else {
        include ? includeToExclude(b) : excludeToExclude(b);
      }
      return true;
    case blockOldSources:
      if (compatibility == igmpVersion3) include ? includeBlock(b) : excludeBlock(b);
      return true;
    default: return false;
  }
}

void QuerierGroupSm::allowSources(AddrList b) {
  for (const IpAddr addr : b) sourceTimerIs(addr, groupMembershipInterval());
}

// Sources that go in this switch do not take the group along: the filter mode has changed by then.
void QuerierGroupSm::includeIsExclude(AddrList b) {
  filterModeIs(filterModeExclude);
  for (const IpAddr addr : b) {
    if (!source_.contains(addr)) sourceTimerIs(addr, never);
  }
  deleteSourcesNotIn(b);
  doSetTimer(membershipTimerId, groupMembershipInterval());
}

void QuerierGroupSm::includeToInclude(AddrList b) {
  askSourcesNotIn(b);
  allowSources(b);
  doSetTimer(rexmitTimerId, 0.0);
}

void QuerierGroupSm::includeToExclude(AddrList b) {
  filterModeIs(filterModeExclude);
  for (const IpAddr addr : b) {
    if (source_.contains(addr)) {
      toRexmitState(addr);
    } else {
      sourceTimerIs(addr, never);
    }
  }
  deleteSourcesNotIn(b);
  doSetTimer(membershipTimerId, groupMembershipInterval());
  doSetTimer(rexmitTimerId, 0.0);
}

void QuerierGroupSm::includeBlock(AddrList b) {
  for (const IpAddr addr : b) {
    if (source_.contains(addr)) toRexmitState(addr);
  }
  doSetTimer(rexmitTimerId, 0.0);
}

void QuerierGroupSm::excludeIsExclude(AddrList b) {
  deleteSourcesNotIn(b);
  for (const IpAddr addr : b) {
    if (!source_.contains(addr)) sourceTimerIs(addr, groupMembershipInterval());
  }
  doSetTimer(membershipTimerId, groupMembershipInterval());
}

void QuerierGroupSm::excludeToInclude(AddrList b) {
  const std::vector<IpAddr> a = source_.keys();
  allowSources(b);
  for (const IpAddr addr : a) {
    if (!isIn(b, addr)) toRexmitState(addr);
  }
  rexmitGroupQueryIs(lastMemberQueryCount());
  lowerMembershipTimer(lastMemberQueryTime());
  doSetTimer(rexmitTimerId, 0.0);
}

void QuerierGroupSm::excludeToExclude(AddrList b) {
  deleteSourcesNotIn(b);
  excludeAsk(b);
  doSetTimer(membershipTimerId, groupMembershipInterval());
  doSetTimer(rexmitTimerId, 0.0);
}

void QuerierGroupSm::excludeBlock(AddrList b) {
  excludeAsk(b);
  doSetTimer(rexmitTimerId, 0.0);
}

// A source that is new to an EXCLUDE group was forwarded as long as the group timer runs: it is
// asked about for that time.
void QuerierGroupSm::excludeAsk(AddrList b) {
  for (const IpAddr addr : b) {
    if (!source_.contains(addr)) sourceTimerIs(addr, membershipTimerRemaining());
    toRexmitState(addr);
  }
}

// Older hosts cannot name sources: with one present, the record counts as one without a list
// (7.3.2).
void QuerierGroupSm::olderHostsToExclude() {
  filterModeIs(filterModeExclude);
  sourceDelAll();
  rexmitSourceDelAll();
  doSetTimer(membershipTimerId, groupMembershipInterval());
}

void QuerierGroupSm::askSourcesNotIn(AddrList b) {
  for (const IpAddr addr : source_.keys()) {
    if (!isIn(b, addr)) toRexmitState(addr);
  }
}

void QuerierGroupSm::deleteSourcesNotIn(AddrList b) {
  if (source_.empty()) return;
  for (const IpAddr addr : source_.keys()) {
    if (isIn(b, addr)) continue;
    rexmitSourceDel(addr);
    sourceDel(addr);
  }
}

void QuerierGroupSm::closeRecord() {
  if (ended()) return;
  if (!queriesPending()) {
    doSetTimer(rexmitTimerId, never);
  } else if (rexmitTimerState_ != timerRunning) {
    doSetTimer(rexmitTimerId, config().lastMemberQueryInterval());
  }
  if (ended()) return;
  if (groupStatus_->filterMode() == filterModeInclude && source_.empty()) {
    trace<3>(machineTrace, "Deleting groupSm for group ", group_);
    querierSm().groupSmDel(group_);
  }
}

}  // namespace Gmp::Igmp
