// Reactions to changes of the configuration. The values in effect follow it, except those that the
// elected querier announces while this router is not the querier. No range is checked here.
#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>

namespace Gmp::Igmp {

using Mox::trace;

namespace {

// While another router is the querier, its announced values are in effect.
bool ownValuesInEffect(const QuerierStatus& status) {
  return status.state() != QuerierStatus::querierStateNonQuerier;
}

// Left at the default, the startup query interval follows the query interval.
bool startupIntervalIsDefault(const QuerierSm& sm) {
  return sm.startupQueryIntervalDefault() != 0 &&
         sm.querierConfig()->startupQueryInterval() == sm.startupQueryIntervalDefault();
}

}  // namespace

// The two handlers below publish one value as their last act, so they need no Ptr to their machine.
void QuerierSm::handleQueryResponseInterval() {
  if (!initialized_) return;
  trace<8>(machineTrace, *this, "::", "handleQueryResponseInterval", "()");
  const Seconds configured = querierConfig()->queryResponseInterval();
  trace<6>(machineTrace, *this, ": query response interval is ", configured);
  if (ownValuesInEffect(*querierStatus_)) querierStatus_->queryResponseIntervalIs(configured);
}

void QuerierSm::handleRobustness() {
  if (!initialized_) return;
  trace<8>(machineTrace, *this, "::", "handleRobustness", "()");
  const U32 configured = querierConfig()->robustness();
  trace<6>(machineTrace, *this, ": robustness is ", configured);
  if (ownValuesInEffect(*querierStatus_)) querierStatus_->robustnessIs(configured);
}

// The version is never taken over from another querier.
void QuerierSm::handleQuerierVersion() {
  if (!initialized_) return;
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleQuerierVersion", "()");
  const IgmpVersion configured = querierConfig()->querierVersion();
  trace<6>(machineTrace, *this, ": querier version is ", configured);
  querierStatus_->querierVersionIs(configured);
  // A notifiee of a group's new mode may end groups, so the walk is over their addresses.
  for (const IpAddr group : groupSm_.keys()) {
    if (const Ptr<QuerierGroupSm> sm = groupSm(group)) sm->handleQuerierVersion();
  }
}

void QuerierSm::handleQueryInterval() {
  if (!initialized_) return;
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleQueryInterval", "()");
  const Seconds configured = querierConfig()->queryInterval();
  trace<6>(machineTrace, *this, ": query interval is ", configured);
  if (ownValuesInEffect(*querierStatus_)) querierStatus_->queryIntervalIs(configured);
  if (startupIntervalIsDefault(*this)) {
    querierStatus_->startupQueryIntervalIs(0.25 * configured);
    trace<6>(machineTrace, *this, ": startup query interval is ", 0.25 * configured);
  }
  // Hosts receive the new interval, and the timer its new schedule, at once.
  if (querierStatus_->state() == QuerierStatus::querierStateQuerier) handleQueryIntervalTimer();
}

void QuerierSm::handleStartupQueryInterval() {
  if (!initialized_) return;
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleStartupQueryInterval", "()");
  const Seconds configured = querierConfig()->startupQueryInterval();
  trace<6>(machineTrace, *this, ": startup query interval is configured as or defaults to ",
           configured);
  if (startupIntervalIsDefault(*this)) {
    // handleQueryInterval keeps it at a quarter of the query interval.
  } else if (configured == 0.0) {
    querierStatus_->startupQueryIntervalIs(0.25 * querierConfig()->queryInterval());
  } else {
    querierStatus_->startupQueryIntervalIs(configured);
  }
  trace<6>(machineTrace, *this, ": effective startup query interval is ",
           querierStatus_->startupQueryInterval());
}

// Deliberately not symmetric: an instance that never decided on a role does not take the querier's
// because sending is switched on; it takes the role when the elected querier falls silent, or at a
// restart.
void QuerierSm::handleSendQuery() {
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleSendQuery", "()");
  if (querierConfig()->sendQuery()) {
    if (querierStatus_->state() == QuerierStatus::querierStateNonQuerier) becomeQuerier();
  } else if (querierStatus_->state() == QuerierStatus::querierStateQuerier) {
    doSetTimer(queryIntervalTimerId, never);
    doSetTimer(otherQuerierTimerId, never);
    roleIs(QuerierStatus::querierStateNonQuerier);
  }
}

}  // namespace Gmp::Igmp
