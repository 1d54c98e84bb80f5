#include <GmpIgmpQuerierSm/QuerierGroupSourceSm.h>

#include <stdlib.h>

#include <limits>
#include <utility>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierGroupSm.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Mox/ActivityClock.h>

namespace Gmp::Igmp {

using Mox::trace;

QuerierGroupSourceSm::QuerierGroupSourceSm(IpAddr addr, Wheel wheel, QuerierGroupSm* groupSm)
    : addr_(addr), sourceTimer_(std::move(wheel), *this), groupSm_(groupSm) {
  parentIs(groupSm, QuerierGroupSm::attributes.idOf<QuerierGroupSm::sourceMember>());
  handleSourceTimer();  // as in every machine; it returns, not being initialized
  handleInitialized();
}

Seconds QuerierGroupSourceSm::sourceTimerRemaining() const {
  return sourceTimerState_ == timerDisabled ? never : sourceTimerExpiry_ - Mox::now();
}

bool QuerierGroupSourceSm::ended() const { return groupSm_ == nullptr || groupSm_->ended(); }

void QuerierGroupSourceSm::doSetTimer(Seconds seconds) {
  if (ended()) return;
  const Ptr<QuerierGroupSourceSm> alive(this);
  trace<8>(machineTrace, *this, "::", "doSetTimer", "( ", seconds, " )");
  Seconds expiry = never;
  TimerState state = timerDisabled;
  if (seconds > std::numeric_limits<Seconds>::max()) {
    sourceStatus_->expiredIs(true);
  } else {
    sourceStatus_->expiredIs(false);
    expiry = Mox::now() + seconds;
    state = timerRunning;
  }
  if (ended()) return;  // by a notifiee of the flag
  trace<6>(machineTrace, *this, "::", "doSetTimer", ": Setting source timer for ",
           groupSm_->interfaceName(), ":", groupSm_->group(), ":", addr_, " to expire in ", seconds,
           " @ ", expiry);
  sourceTimer_.timeMinIs(expiry);
  sourceTimerExpiryIs(expiry);
  sourceTimerStateIs(state);
  // While readers lag, only the flag is published: the exact time matters less than room in the
  // log.
  if (ended() || groupSm_->attrLogClogged()) return;
  sourceStatus_->expiryTimeIs(expiry);
}

void QuerierGroupSourceSm::handleInitialized() {
  const Ptr<QuerierGroupSourceSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleInitialized", "()");
  initializedIs(true);
  if (ended()) return;
  QuerierGroupStatus& groupStatus = *groupSm_->groupStatus();
  Ptr<QuerierSourceStatus> status = groupStatus.source(addr_);
  if (status) {
    trace<6>(machineTrace, *this, "::", "handleInitialized", "()", ": a source status for ", addr_,
             " already exists");
  } else {
    trace<6>(machineTrace, *this, "::", "handleInitialized", "()", ": add source ", addr_,
             " to status");
    status = groupStatus.sourceIs(addr_);
    if (!ended()) status->creationTimeIs(Mox::now());
  }
  sourceStatus_ = std::move(status);
  doSetTimer(never);
}

void QuerierGroupSourceSm::handleSourceTimer() {
  if (!initialized_ || !groupSm_->reactsToTimers()) return;
  const Ptr<QuerierGroupSourceSm> alive(this);
  const Ptr<QuerierGroupSm> group(groupSm_);
  trace<8>(machineTrace, *this, "::", "handleSourceTimer", "()");
  trace<3>(machineTrace, "Source ", addr_, " for ", group->group(), " on ", group->interfaceName(),
           " expired at ", sourceTimerExpiry_);
  if (group->attrLogClogged()) {
    trace<3>(machineTrace, "Postponing Source Cleanup for a few seconds.");
    doSetTimer(drand48() * 10.0);
    return;
  }
  doSetTimer(never);
  if (ended() || group->groupStatus()->filterMode() != filterModeInclude) return;
  trace<3>(machineTrace, "Removing source ", addr_, " for ", group->group(), " on ",
           group->interfaceName());
  group->rexmitSourceDel(addr_);
  group->sourceDel(addr_);
}

void QuerierGroupSourceSm::end() {
  sourceTimer_.timeMinIs(never);
  initialized_ = false;
  groupSm_ = nullptr;
  parentIs(nullptr, 0);
}

QuerierGroupSourceSmText tracePart(const QuerierGroupSourceSm& sm) {
  return {sm.groupSm() == nullptr ? IpAddr() : sm.groupSm()->group(), sm.addr()};
}

void appendText(std::string& out, const QuerierGroupSourceSmText& text) {
  out +=
      "QuerierGroupSourceSm( " + text.group.stringValue() + ", " + text.source.stringValue() + " )";
}

Ptr<QuerierGroupSourceSm> QuerierGroupSourceSmIs(IpAddr addr, QuerierGroupSourceSm::Wheel wheel,
                                                 QuerierGroupSm* groupSm) {
  return makePtr<QuerierGroupSourceSm>(addr, std::move(wheel), groupSm);
}

Ptr<QuerierGroupSourceSm> getOrCreateSourceSm(Ptr<QuerierGroupSm> group, IpAddr addr) {
  trace<8>(machineTrace,
           "Gmp::Igmp::QuerierGroupSourceSm::Ptr "
           "Gmp::Igmp::getOrCreateSourceSm(Gmp::Igmp::QuerierGroupSm::Ptr, Ilvo::IpAddr)",
           *group, " ", addr);
  if (Ptr<QuerierGroupSourceSm> found = group->source(addr)) return found;
  return group->sourceIs(addr, group->querierSm().queryIntervalTimer());
}

}  // namespace Gmp::Igmp
