// Querier election (RFC 3376 6.6.2): the router with the lowest address of the link sends queries,
// the others follow it.
#include <stdlib.h>

#include <vector>

#include <GmpIgmpQuerierSm/MachineLogs.h>
#include <GmpIgmpQuerierSm/QuerierSm.h>
#include <Ilvo/IgmpHdr.h>

namespace Gmp::Igmp {

using Mox::trace;

// The only place that changes the role. The trace names the handler that asked for it.
void QuerierSm::roleIs(QuerierStatus::QuerierState role, Mox::Place by) {
  const QuerierStatus::QuerierState old = querierStatus_->state();
  if (role == old) return;
  trace<3>(Mox::TraceAt(machineTrace, by), *this, ": role changes from ", old, " to ", role);
  querierStatus_->stateIs(role);
}

// The first query leaves after a random delay, so that routers started together do not send in
// step.
void QuerierSm::becomeQuerier() {
  if (!initialized_) return;
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "becomeQuerier", "()");
  trace<3>(machineTrace, *this, ": Assigning our address ", ipAddr_, " as querier ");
  querierStatus_->electedQuerierAddrIs(ipAddr_);
  doSetTimer(otherQuerierTimerId, never);
  roleIs(QuerierStatus::querierStateQuerier);
  doSetTimer(queryIntervalTimerId, drand48() * 10.0);
}

void QuerierSm::doQuerierElection(const Ilvo::IpHdr& ip, const Ptr<Ilvo::Pkt>& pkt) {
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, "void Gmp::Igmp::QuerierSm::doQuerierElection(const Ptr&, const Ptr&)", ip,
           "size ", pkt->offsetBytes());
  const IpAddr src = ip.src();
  if (src.isZero()) {
    trace<6>(machineTrace, name(), " Ignoring Query from 0.0.0.0 for Querier Election");
    return;
  }
  const IpAddr current = querierStatus_->electedQuerierAddr();
  if (!current.isZero() && current < src) {
    trace<6>(machineTrace, name(), " Existing querier ", current, " wins election");
    return;
  }
  if (current == src) {
    trace<6>(machineTrace, name(), " Existing querier ", current, " refreshing");
  } else {
    trace<3>(machineTrace, name(), " New querier ", src, " wins over ", current);
    querierStatus_->electedQuerierAddrIs(src);
    trace<6>(machineTrace, name(), " electedQuerierAddrIs ", src);
  }
  if (querierStatus_->electedQuerierAddr() == ipAddr_) return;  // our own query, looped back
  if (querierStatus_->state() == QuerierStatus::querierStateQuerier) loseElection();
  adoptQuerierValues(pkt);
  trace<6>(machineTrace, name(), " set query timer='inf' as we are no longer the querier");
  doSetTimer(queryIntervalTimerId, never);
  const Seconds interval = querierStatus_->otherQuerierPresentInterval();
  trace<6>(machineTrace, name(), " otherQuerier expires in ", interval);
  doSetTimer(otherQuerierTimerId, interval);
}

bool QuerierSm::isRexmitPending(IpAddr group) const {
  const Ptr<QuerierGroupSm>* sm = groupSm_.find(group);
  return sm != nullptr && ((*sm)->rexmitGroupQuery() != 0 || !(*sm)->rexmitSource().empty());
}

// This router completes its pending retransmissions: the new querier has not received the leave.
void QuerierSm::loseElection() {
  if (transitionToNonQuerier_) {
    pendingRexmitDelDone();
  } else {
    pendingRexmitDelAll();
    for (const IpAddr group : groupSm_.keys()) {
      if (isRexmitPending(group)) pendingRexmitIs(group, true);
    }
  }
  if (pendingRexmit_.empty()) {
    transitionToNonQuerierIs(false);
    roleIs(QuerierStatus::querierStateNonQuerier);
  } else {
    transitionToNonQuerierIs(true);
  }
}

// Each further query of the new querier comes here during the hand-over. The groups whose
// retransmissions have started since are in the set already, so the others are not looked at: a
// walk over all groups would make such a query cost as much as the hand-over itself.
void QuerierSm::pendingRexmitDelDone() {
  std::vector<IpAddr> done;
  for (const auto& [group, value] : pendingRexmit_) {
    if (!isRexmitPending(group)) done.push_back(group);
  }
  for (const IpAddr group : done) pendingRexmitDel(group);
}

// Retransmissions that start during the hand-over are part of it. The last group to finish its own
// completes it.
void QuerierSm::handleGroupRexmit(IpAddr group, TimerState rexmitState) {
  if (!transitionToNonQuerier_) return;
  const Ptr<QuerierSm> alive(this);
  if (rexmitState == timerRunning) {
    pendingRexmitIs(group, true);
    return;
  }
  pendingRexmitDel(group);
  if (pendingRexmit_.empty()) {
    transitionToNonQuerierIs(false);
    roleIs(QuerierStatus::querierStateNonQuerier);
  }
}

// A value that the message lacks is taken from the configuration, except the response time of an
// old query, which is 10 seconds when its code is 0 (RFC 3376 7.1).
void QuerierSm::adoptQuerierValues(const Ptr<Ilvo::Pkt>& pkt) {
  const QuerierConfig& config = *querierConfig();
  if (!pkt->has(Ilvo::IgmpV3QueryHdr::bytes)) {
    const Seconds response = Ilvo::IgmpV12Hdr(*pkt).maxResponseSeconds();
    querierStatus_->robustnessIs(config.robustness());
    querierStatus_->queryIntervalIs(config.queryInterval());
    querierStatus_->queryResponseIntervalIs(response != 0.0 ? response : 10.0);
    return;
  }
  const Ilvo::IgmpV3QueryHdr query(*pkt);
  const U32 robustness = query.qrv();
  const Seconds interval = query.queryIntervalSeconds();
  const Seconds response = query.maxResponseSeconds();
  trace<3>(machineTrace, name(), " IGMPv3 Querier detected and won election ",
           " with Robustness:", robustness, " Interval:", interval, " Resp:", response);
  querierStatus_->robustnessIs(robustness != 0 ? robustness : config.robustness());
  querierStatus_->queryIntervalIs(interval != 0.0 ? interval : config.queryInterval());
  querierStatus_->queryResponseIntervalIs(response != 0.0 ? response
                                                          : config.queryResponseInterval());
}

// The elected querier has been silent for too long. Deliberately, the first query still has half of
// that querier's response interval: the hosts follow its timing.
void QuerierSm::handleOtherQuerierTimer() {
  if (!initialized_) return;
  const Ptr<QuerierSm> alive(this);
  trace<8>(machineTrace, *this, "::", "handleOtherQuerierTimer", "()");
  trace<3>(machineTrace, "Make myself as elected querier.");
  querierStatus_->electedQuerierAddrIs(ipAddr_);
  roleIs(QuerierStatus::querierStateQuerier);
  doSetTimer(otherQuerierTimerId, never);
  querierStatus_->robustnessIs(querierConfig()->robustness());
  querierStatus_->queryIntervalIs(querierConfig()->queryInterval());
  initialQuerySentIs(false);
  handleQueryIntervalTimer();
  querierStatus_->queryResponseIntervalIs(querierConfig()->queryResponseInterval());
  transitionToNonQuerierIs(false);
}

}  // namespace Gmp::Igmp
