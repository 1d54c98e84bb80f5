#include <GmpIgmpQuerierSm/QuerierGroupSm.h>

#include <stdlib.h>

#include <limits>
#include <utility>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Mox/ActivityClock.h>
#include <MoxBase/Fatal.h>

namespace Gmp::Igmp {

using Mox::trace;

QuerierGroupSm::QuerierGroupSm(IpAddr group, Wheel membershipWheel, Wheel v1Wheel, Wheel v2Wheel,
                               Wheel rexmitWheel, QuerierSm* querierSm)
    : group_(group),
      membershipTimer_(std::move(membershipWheel), *this),
      v1MembershipTimer_(std::move(v1Wheel), *this),
      v2MembershipTimer_(std::move(v2Wheel), *this),
      rexmitTimer_(std::move(rexmitWheel), *this) {
  parentIs(querierSm, QuerierSm::attributes.idOf<QuerierSm::groupSmMember>());
  // As in every machine, each timer's handler runs once; they return, not being initialized.
  handleMembershipTimer();
  handleV1MembershipTimer();
  handleV2MembershipTimer();
  handleRexmitTimer();
  handleInitialized();
}

QuerierGroupSm::~QuerierGroupSm() { end(); }

QuerierSm& QuerierGroupSm::querierSm() const {
  Mox::fatalUnless(!ended(), machineModelFile, "querierSm( )");
  return static_cast<QuerierSm&>(*parent());
}

void QuerierGroupSm::prefetchStatus() const {
  const char* at = reinterpret_cast<const char*>(groupStatus_.get());
  __builtin_prefetch(at, 1);
  __builtin_prefetch(at + 64, 1);
}

QuerierGroupSm::DeclaredSets& QuerierGroupSm::declaredSets() {
  if (!declaredSets_) declaredSets_ = std::make_unique<DeclaredSets>();
  return *declaredSets_;
}

namespace {
const QuerierGroupSm::AddrSet noSources;
}

const QuerierGroupSm::AddrSet& QuerierGroupSm::rexmitClrSource() const {
  return declaredSets_ ? declaredSets_->clr : noSources;
}

const QuerierGroupSm::AddrSet& QuerierGroupSm::rexmitSetSource() const {
  return declaredSets_ ? declaredSets_->set : noSources;
}

void QuerierGroupSm::prefetch() const {
  const char* at = reinterpret_cast<const char*>(this);
  const char* end = reinterpret_cast<const char*>(&v2MembershipTimer_ + 1);
  for (; at < end; at += 64) __builtin_prefetch(at, 1);
}

Mox::Name QuerierGroupSm::interfaceName() const { return querierSm().name(); }
const QuerierConfig& QuerierGroupSm::config() const { return *querierSm().querierConfig(); }
QuerierStatus& QuerierGroupSm::querierStatus() const { return *querierSm().querierStatus(); }
bool QuerierGroupSm::attrLogClogged() const { return querierSm().attrLogClogged(); }

void QuerierGroupSm::filterModeIs(IgmpFilterMode v) {
  if (!ended()) groupStatus_->filterModeIs(v);
}

void QuerierGroupSm::compatibilityModeIs(IgmpVersion v) {
  if (!ended()) groupStatus_->compatibilityModeIs(v);
}

void QuerierGroupSm::lastReporterIs(IpAddr v) {
  if (!ended()) groupStatus_->lastReporterIs(v);
}

Seconds QuerierGroupSm::groupMembershipInterval() const {
  return ended() ? 0.0 : querierStatus().groupMembershipInterval();
}

Seconds QuerierGroupSm::lastMemberQueryTime() const {
  return ended() ? 0.0 : config().lastMemberQueryTime();
}

U32 QuerierGroupSm::lastMemberQueryCount() const {
  return ended() ? 0 : config().lastMemberQueryCount();
}

Seconds QuerierGroupSm::membershipTimerRemaining() const {
  return membershipTimerState_ == timerDisabled ? never : membershipTimerExpiry_ - Mox::now();
}

Seconds QuerierGroupSm::rexmitTimerRemaining() const {
  return rexmitTimerState_ == timerDisabled ? never : rexmitTimerExpiry_ - Mox::now();
}

void QuerierGroupSm::doSetTimer(TimerId id, Seconds seconds) {
  if (ended()) return;
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "doSetTimer", "( ", id, ", ", seconds, " )");
  const bool disable = seconds > std::numeric_limits<Seconds>::max();
  const Seconds expiry = disable ? never : Mox::now() + seconds;
  const TimerState state = disable ? timerDisabled : timerRunning;
  trace<6>(machineTrace, "Setting ", id, " for ", interfaceName(), ":", group_, " to expire in ",
           seconds, " @ ", expiry);
  switch (id) {
    case membershipTimerId:
      membershipTimer_.timeMinIs(expiry);
      membershipTimerExpiryIs(expiry);
      membershipTimerStateIs(state);
      if (!ended()) groupStatus_->expiryTimeIs(expiry);
      return;
    case v1MembershipTimerId:
      v1MembershipTimer_.timeMinIs(expiry);
      v1MembershipTimerStateIs(state);
      return;
    case v2MembershipTimerId:
      v2MembershipTimer_.timeMinIs(expiry);
      v2MembershipTimerStateIs(state);
      return;
    case rexmitTimerId:
      rexmitTimer_.timeMinIs(expiry);
      rexmitTimerExpiryIs(expiry);
      rexmitTimerStateIs(state);
      if (!ended()) querierSm().handleGroupRexmit(group_, state);
      return;
  }
  Mox::fatal(machineModelFile, "timer id");
}

void QuerierGroupSm::handleInitialized() {
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleInitialized", "()");
  initializedIs(true);
  if (ended()) return;
  const Ptr<QuerierStatus> status = querierSm().querierStatus();
  const IpAddr reporter = querierSm().pktSrc();
  Ptr<QuerierGroupStatus> groupStatus = status->group(group_);
  status->joinsInc(1);
  if (ended()) return;
  if (groupStatus) {
    trace<3>(machineTrace, *this, "::", "handleInitialized", "()", ": a group status for ", group_,
             " already exists");
  } else {
    trace<3>(machineTrace, *this, "::", "handleInitialized", "()", ": add group ", group_,
             " to status");
    groupStatus = status->groupIs(group_);
    groupStatus->creationTimeIs(Mox::now());
  }
  trace<6>(machineTrace, "joins : ", status->joins());
  groupStatus->lastReporterIs(reporter);
  groupStatus->compatibilityModeIs(status->querierVersion());
  groupStatus_ = std::move(groupStatus);
  doSetTimer(membershipTimerId, never);
  doSetTimer(v1MembershipTimerId, never);
  doSetTimer(v2MembershipTimerId, never);
  doSetTimer(rexmitTimerId, never);
}

// Those of a querier that has ended may still be due.
bool QuerierGroupSm::reactsToTimers() const { return initialized_ && querierSm().initialized(); }

void QuerierGroupSm::handleV1MembershipTimer() {
  if (!reactsToTimers()) return;
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleV1MembershipTimer", "()");
  trace<3>(machineTrace, "V1 Membership for ", group_, " on ", interfaceName(), " expired");
  const IgmpVersion configured = config().querierVersion();
  const bool v2HostsPresent = v2MembershipTimerState_ == timerRunning && configured != igmpVersion1;
  groupStatus_->compatibilityModeIs(v2HostsPresent ? igmpVersion2 : configured);
  doSetTimer(v1MembershipTimerId, never);
}

void QuerierGroupSm::handleV2MembershipTimer() {
  if (!reactsToTimers()) return;
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleV2MembershipTimer", "()");
  trace<3>(machineTrace, "V2 Membership for ", group_, " on ", interfaceName(), " expired");
  if (v1MembershipTimerState_ != timerRunning) {
    groupStatus_->compatibilityModeIs(config().querierVersion());
  }
  doSetTimer(v2MembershipTimerId, never);
}

// The lower of the versions of the oldest present host and of the querier. Unlike the two expiries
// above, which fall back to the configured version, this follows the version in effect.
// Publishing the mode is its last act, so it needs no Ptr to its machine.
void QuerierGroupSm::handleQuerierVersion() {
  if (ended()) return;
  trace<8>(machineTrace, *this, "::", "handleQuerierVersion", "()");
  IgmpVersion hostVersion = igmpVersion3;
  if (v1MembershipTimerState_ == timerRunning) {
    hostVersion = igmpVersion1;
  } else if (v2MembershipTimerState_ == timerRunning) {
    hostVersion = igmpVersion2;
  }
  const IgmpVersion querierVersion = querierStatus().querierVersion();
  groupStatus_->compatibilityModeIs(querierVersion >= hostVersion ? hostVersion : querierVersion);
}

void QuerierGroupSm::handleMembershipTimer() {
  if (!reactsToTimers()) return;
  const Ptr<QuerierGroupSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleMembershipTimer", "()");
  if (attrLogClogged()) {
    trace<3>(machineTrace, "Reschedule membership timer as attr log will overflow.");
    const double r = drand48();
    doSetTimer(membershipTimerId, r + r);
    return;
  }
  trace<3>(machineTrace, "Membership for ", group_, " on ", interfaceName(), " expired");
  doSetTimer(membershipTimerId, never);
  for (const IpAddr addr : source_.keys()) {
    const Ptr<QuerierGroupSourceSm> sourceSm = source(addr);
    if (!sourceSm || sourceSm->sourceTimerState() != timerDisabled) continue;
    trace<3>(machineTrace, "Removing source ", addr, " for ", group_, " on ", interfaceName());
    rexmitSourceDel(addr);
    sourceDel(addr);  // an INCLUDE group ends with its last source
  }
  if (rexmitSource_.empty()) doSetTimer(rexmitTimerId, never);
  filterModeIs(filterModeInclude);
  if (ended() || !source_.empty()) return;
  trace<3>(machineTrace, "Deleting groupSm for group ", group_);
  querierSm().groupSmDel(group_);
}

void QuerierGroupSm::end() {
  membershipTimer_.timeMinIs(never);
  v1MembershipTimer_.timeMinIs(never);
  v2MembershipTimer_.timeMinIs(never);
  rexmitTimer_.timeMinIs(never);
  for (const auto& [addr, sourceSm] : source_) sourceSm->end();
  source_.clear();
  rexmitSource_.clear();
  initialized_ = false;
  parentIs(nullptr, 0);
}

void appendText(std::string& out, QuerierGroupSmText text) {
  out += "QuerierGroupSm( " + text.group.stringValue() + " )";
}

Ptr<QuerierGroupSm> QuerierGroupSmIs(IpAddr group, QuerierGroupSm::Wheel membershipWheel,
                                     QuerierGroupSm::Wheel v1Wheel, QuerierGroupSm::Wheel v2Wheel,
                                     QuerierGroupSm::Wheel rexmitWheel, QuerierSm* querierSm) {
  return makePtr<QuerierGroupSm>(group, std::move(membershipWheel), std::move(v1Wheel),
                                 std::move(v2Wheel), std::move(rexmitWheel), querierSm);
}

}  // namespace Gmp::Igmp
