#include <GmpIgmpQuerierTestSupport/QuerierInvariants.h>

#include <utility>

#include <Ilvo/IgmpHdr.h>

namespace Gmp::Igmp::testing {

ReceiveCounters receiveCountersOf(const QuerierStatus& status) {
  return {status.v1QueriesReceived(),   status.v2QueriesReceived(),
          status.v3QueriesReceived(),   status.v1ReportReceived(),
          status.v2ReportReceived(),    status.v2LeaveReceived(),
          status.v3ReportReceived(),    status.errorPacketReceived(),
          status.otherPacketReceived(), status.mcastBoundaryPktReceived()};
}

std::string textOf(const ReceiveCounters& c) {
  std::string text;
  for (const auto& [name, count] : {std::pair{"v1 queries ", c.v1Queries},
                                    {", v2 queries ", c.v2Queries},
                                    {", v3 queries ", c.v3Queries},
                                    {", v1 reports ", c.v1Reports},
                                    {", v2 reports ", c.v2Reports},
                                    {", leaves ", c.leaves},
                                    {", v3 reports ", c.v3Reports},
                                    {", errors ", c.errors},
                                    {", others ", c.others},
                                    {", at the boundary ", c.atBoundary}}) {
    text += name + std::to_string(count);
  }
  return text;
}

// Sees what the querier publishes.
class QuerierInvariants::Watch final : public QuerierSm::NotifieeConst {
 public:
  Watch(Ptr<const QuerierSm> querier, QuerierInvariants& invariants)
      : NotifieeConst(std::move(querier)), invariants_(invariants) {}

  void onWritableCount() override {
    const Ptr<Ilvo::Pkt>& query = notifier()->sendPkt();
    invariants_.require(query && query->has(Ilvo::IgmpV12Hdr::bytes),
                        "a query that is sent is one");
    if (!query) return;
    if (!query->has(Ilvo::IgmpV3QueryHdr::bytes)) {
      ++invariants_.sentOld_;
    } else {
      const bool withSources = Ilvo::IgmpV3QueryHdr(*query).numSources() != 0;
      ++(withSources ? invariants_.sentWithSources_ : invariants_.sentV3_);
    }
  }

  void onTransitionToNonQuerier() override {
    const QuerierSm& querier = *notifier();
    if (querier.transitionToNonQuerier() || querier.pendingRexmit().empty()) return;
    invariants_.takenOver_ = true;
    invariants_.require(querier.querierStatus()->electedQuerierAddr() == querier.ipAddr(),
                        "a hand-over that ends early ends with this querier elected");
  }

  const QuerierSm& querier() const { return *notifier(); }
  const QuerierStatus& status() const { return *notifier()->querierStatus(); }

 private:
  QuerierInvariants& invariants_;
};

QuerierInvariants::QuerierInvariants(Ptr<const Obel::TimerWheel> wheel)
    : wheel_(std::move(wheel)) {}
QuerierInvariants::~QuerierInvariants() = default;

void QuerierInvariants::watch(const Ptr<QuerierSm>& querier) {
  watch_ = std::make_unique<Watch>(querier, *this);
  if (querier->writableCount() != 0) watch_->onWritableCount();
}

void QuerierInvariants::release() { watch_.reset(); }

std::vector<std::string> QuerierInvariants::breaches() {
  const QuerierSm& querier = watch_->querier();
  const QuerierStatus& status = watch_->status();
  const bool rebuilding = querier.initGroupStatusTimerMin() != never;
  running_ = rebuilding ? 1 : 0;
  running_ += querier.queryIntervalTimerState() == timerRunning;
  running_ += querier.otherQuerierTimerState() == timerRunning;
  size_t machines = 0;
  for (const auto& [group, sm] : querier.groupSm()) {
    ++machines;
    const bool published = sm->groupStatus() && sm->groupStatus() == status.group(group);
    require(published, group, "a group's machine has the group's status entry");
    require(&sm->querierSm() == &querier, group, "a group's machine knows its querier");
    if (published) requireGroup(*sm);
  }
  const size_t entries = status.group().size();
  require(rebuilding ? entries >= machines : entries == machines,
          "a status entry has its machine, or one is about to be made");
  require(wheel_->armed() == running_, "timers that run, and no others, are armed");
  require(status.joins() >= machines, "each group has joined once");
  requireHandOver();
  requireSent();
  return std::exchange(breaches_, {});
}

void QuerierInvariants::require(bool holds, std::string_view what) {
  if (!holds) breaches_.emplace_back(what);
}

void QuerierInvariants::require(bool holds, IpAddr group, std::string_view what) {
  if (!holds) breaches_.push_back(group.stringValue() + ": " + std::string(what));
}

void QuerierInvariants::requireGroup(const QuerierGroupSm& sm) {
  const IpAddr group = sm.group();
  for (const TimerState state : {sm.membershipTimerState(), sm.v1MembershipTimerState(),
                                 sm.v2MembershipTimerState(), sm.rexmitTimerState()}) {
    running_ += state == timerRunning;
  }
  require(sm.groupStatus()->expiryTime() == sm.membershipTimerExpiry(), group,
          "the published end of the group is that of its timer");
  require((sm.membershipTimerExpiry() == never) == (sm.membershipTimerState() == timerDisabled),
          group, "the group timer has a time when it runs");
  require((sm.rexmitTimerExpiry() == never) == (sm.rexmitTimerState() == timerDisabled), group,
          "the retransmission timer has a time when it runs");
  require(sm.membershipTimerRemaining() >= 0.0 && sm.rexmitTimerRemaining() >= 0.0, group,
          "no timer is overdue");
  requireSources(sm);
}

void QuerierInvariants::requireSources(const QuerierGroupSm& sm) {
  const IpAddr group = sm.group();
  const QuerierGroupStatus& status = *sm.groupStatus();
  require(status.source().size() == sm.source().size(), group,
          "there are as many status entries of sources as machines");
  for (const auto& [addr, source] : sm.source()) requireSource(sm, addr, *source);
  for (const auto& [addr, flag] : sm.rexmitSource()) {
    const Ptr<QuerierGroupSourceSm> source = sm.source(addr);
    require(source && source->rexmits() > 0, group,
            "a source with pending queries has a count of them");
  }
  require(sm.rexmitClrSource().empty() && sm.rexmitSetSource().empty(), group,
          "the lists of a query live no longer than the query is made");
  if (status.filterMode() == filterModeInclude && sm.source().empty()) {
    require(bornOfQuery_.contains(group), group, "a group that includes nothing ends");
  }
}

void QuerierInvariants::requireSource(const QuerierGroupSm& sm, IpAddr addr,
                                      const QuerierGroupSourceSm& source) {
  const IpAddr group = sm.group();
  const bool disabled = source.sourceTimerState() == timerDisabled;
  running_ += !disabled;
  require(source.groupSm() == &sm, group, "a source's machine knows its group");
  require(!addr.isZero(), group, "no source is 0.0.0.0");
  require((source.sourceTimerExpiry() == never) == disabled, group,
          "a source timer has a time when it runs");
  require(source.sourceTimerRemaining() >= 0.0, group, "no source timer is overdue");
  require(sm.groupStatus()->filterMode() != filterModeInclude || !disabled, group,
          "every source that is included runs out some time");
  const Ptr<QuerierSourceStatus>& status = source.sourceStatus();
  const bool published = status && status == sm.groupStatus()->source(addr);
  require(published, group, "a source's machine has the source's status entry");
  if (!published) return;
  require(status->expired() == disabled, group, "a source is expired when its timer does not run");
  require(attrLogWasClogged_ || status->expiryTime() == source.sourceTimerExpiry(), group,
          "the published end of a source is that of its timer");
}

void QuerierInvariants::requireHandOver() {
  const QuerierSm& querier = watch_->querier();
  if (querier.pendingRexmit().empty()) {
    takenOver_ = false;
    require(!querier.transitionToNonQuerier(), "a hand-over lasts while groups are pending");
  } else {
    require(querier.transitionToNonQuerier() || takenOver_, "groups are pending in a hand-over");
  }
}

void QuerierInvariants::requireSent() {
  const QuerierStatus& status = watch_->status();
  require(status.v1QueriesSent() + status.v2QueriesSent() == sentOld_,
          "each query of versions 1 and 2 that was sent is counted");
  require(status.v3QueriesSent() == sentV3_,
          "each version 3 query without sources that was sent is counted");
  require(status.v3GSSQueriesSent() == sentWithSources_,
          "each query with sources that was sent is counted");
}

}  // namespace Gmp::Igmp::testing
