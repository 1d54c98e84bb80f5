// Life of a querier: construction, timers, counters, end.
#include <GmpIgmpQuerierSm/QuerierSm.h>

#include <limits>
#include <utility>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <Mox/ActivityClock.h>
#include <MoxBase/Fatal.h>
#include "QuerierSmConfigReactor.h"

namespace Gmp::Igmp {

using Mox::trace;

QuerierSm::QuerierSm(Ptr<const QuerierConfig> querierConfig, Ptr<QuerierStatus> querierStatus,
                     IpAddr ipAddr, U32 mtu, U32 startupQueryIntervalDefault,
                     Wheel otherQuerierTimer, Wheel queryIntervalTimer, Wheel initGroupStatusTimer,
                     bool debugYieldAfterOne, NotifieeConst* watcher)
    : name_(querierConfig ? querierConfig->name() : Mox::Name()),
      ipAddr_(ipAddr),
      mtu_(mtu),
      startupQueryIntervalDefault_(startupQueryIntervalDefault),
      debugYieldAfterOne_(debugYieldAfterOne),
      querierConfig_(std::make_unique<ConfigReactor>(std::move(querierConfig), *this)),
      querierStatus_(std::move(querierStatus)),
      otherQuerierTimer_(std::move(otherQuerierTimer), *this),
      queryIntervalTimer_(std::move(queryIntervalTimer), *this),
      initGroupStatusTimer_(std::move(initGroupStatusTimer), *this) {
  if (watcher != nullptr) watcher->notifierIs(this);
  // As in every machine, each timer's handler runs once; these two return, not being initialized.
  handleOtherQuerierTimer();
  handleQueryIntervalTimer();
  handleInitialized();
}

// The members release what they hold in the reverse of their order.
QuerierSm::~QuerierSm() {
  ref();  // the guards of the functions called below would otherwise end this instance again
  end();
  groupSmDelAll();
}

// With `initialized` false no reaction of this instance acts any more, nor one of its groups: their
// status entries stay for the instance that follows it.
void QuerierSm::end() {
  if (std::exchange(ended_, true)) return;
  initialized_ = false;
  querierConfig_->makeInert();
  otherQuerierTimer_.timeMinIs(never);
  queryIntervalTimer_.timeMinIs(never);
  initGroupStatusTimer_.timeMinIs(never);
}

const Ptr<const QuerierConfig>& QuerierSm::querierConfig() const {
  return querierConfig_->notifier();
}

void QuerierSm::doSetTimer(TimerId id, Seconds seconds) {
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "doSetTimer", "( ", id, ", ", seconds, " )");
  const bool disable = seconds > std::numeric_limits<Seconds>::max();
  const Seconds expiry = disable ? never : Mox::now() + seconds;
  const TimerState state = disable ? timerDisabled : timerRunning;
  trace<6>(machineTrace, "Setting ", id, " for ", name(), " to expire in ", seconds, " @ ", expiry);
  switch (id) {
    case otherQuerierTimerId:
      otherQuerierTimer_.timeMinIs(expiry);
      otherQuerierTimerStateIs(state);
      querierStatus_->otherQuerierExpiryTimeIs(expiry);
      return;
    case queryIntervalTimerId:
      queryIntervalTimer_.timeMinIs(expiry);
      queryIntervalTimerStateIs(state);
      querierStatus_->generalQueryExpiryTimeIs(expiry);
      return;
  }
  Mox::fatal(machineModelFile, "timer id");
}

void QuerierSm::handleInitialized() {
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleInitialized", "()");
  initializedIs(true);
  handleQueryResponseInterval();
  handleRobustness();
  handleQuerierVersion();
  handleQueryInterval();
  handleStartupQueryInterval();
  handleQuerierGroupStatus();
  if (querierConfig()->sendQuery()) becomeQuerier();
}

// The startup phase is measured by the counters of sent queries, so it begins anew.
void QuerierSm::clearCounters() {
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "clearCounters", "()");
  trace<3>(machineTrace, *this, ": Clearing counters for ", name());
  querierStatus_->v1QueriesSentIs(0);
  querierStatus_->v2QueriesSentIs(0);
  querierStatus_->v3QueriesSentIs(0);
  querierStatus_->v3GSQueriesSentIs(0);
  querierStatus_->v3GSSQueriesSentIs(0);
  querierStatus_->v1QueriesReceivedIs(0);
  querierStatus_->v2QueriesReceivedIs(0);
  querierStatus_->v3QueriesReceivedIs(0);
  querierStatus_->v1ReportReceivedIs(0);
  querierStatus_->v2ReportReceivedIs(0);
  querierStatus_->v2LeaveReceivedIs(0);
  querierStatus_->v3ReportReceivedIs(0);
  querierStatus_->errorPacketReceivedIs(0);
  querierStatus_->otherPacketReceivedIs(0);
  querierStatus_->mcastBoundaryPktReceivedIs(0);
}

void appendText(std::string& out, QuerierSmText text) {
  out += "QuerierSm( ";
  out += text.name.view();
  out += " )";
}

std::string wheelText(const QuerierSm::Wheel& wheel) {
  return "TimerWheel( " + Mox::textOf(static_cast<const void*>(wheel.get())) + " )";
}

Ptr<QuerierSm> querierSmFactory(Ptr<const QuerierConfig> querierConfig,
                                Ptr<QuerierStatus> querierStatus, IpAddr ipAddr, U32 mtu,
                                U32 startupQueryIntervalDefault, QuerierSm::Wheel otherQuerierTimer,
                                QuerierSm::Wheel queryIntervalTimer,
                                QuerierSm::Wheel initGroupStatusTimer, bool debugYieldAfterOne,
                                QuerierSm::NotifieeConst* watcher) {
  return makePtr<QuerierSm>(std::move(querierConfig), std::move(querierStatus), ipAddr, mtu,
                            startupQueryIntervalDefault, std::move(otherQuerierTimer),
                            std::move(queryIntervalTimer), std::move(initGroupStatusTimer),
                            debugYieldAfterOne, watcher);
}

}  // namespace Gmp::Igmp
