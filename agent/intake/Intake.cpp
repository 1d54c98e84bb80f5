// What all packets go through, and what the rules share.
#include <Intake/Intake.h>

#include <algorithm>
#include <utility>

#include <Ilvo/IgmpHdr.h>
#include <Mox/ActivityClock.h>

namespace Agent {

using Gmp::Igmp::QuerierSm;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::Ptr;
using Mox::U64;
using Mox::U8;

namespace {

constexpr Mox::Seconds eventInterval = 60.0;  // between two events of the same rule

}  // namespace

// Only one attribute of the status matters, and its counters change with every packet: the table is
// not searched for them.
class Intake::ElectionReactor final : public QuerierStatus::NotifieeConst {
 public:
  ElectionReactor(const Ptr<QuerierStatus>& status, Intake& intake)
      : NotifieeConst(status), intake_(intake) {}
  void onAttr(Mox::AttrId id) override {
    if (id == elected_) intake_.handleElectedQuerierAddr();
  }

 private:
  const Mox::AttrId elected_ = Mox::typeInfoOf<QuerierStatus>().attr("electedQuerierAddr")->id;
  Intake& intake_;  // owns this reactor, so it outlives it
};

Intake::Intake(IntakeProcess& process, Ptr<const IntakeConfig> config, Ptr<IntakeStatus> status,
               const Ptr<QuerierStatus>& querierStatus, IntakeWatcher& watcher)
    : process_(process),
      config_(std::move(config)),
      status_(std::move(status)),
      querierStatus_(querierStatus),
      watcher_(watcher),
      elected_(querierStatus->electedQuerierAddr()),
      election_(std::make_unique<ElectionReactor>(querierStatus, *this)) {}

Intake::~Intake() = default;

void Intake::linkIs(std::span<const U8> mac, PrefixList subnets) {
  std::copy_n(mac.begin(), std::min(mac.size(), mac_.size()), mac_.begin());
  subnets_ = std::move(subnets);
}

IntakeVerdict Intake::judge(const ReceivedFrame& frame) {
  const IntakeVerdict unchanged{frame.packet};
  if (!querier_) return unchanged;
  const std::optional<PacketView> view = PacketView::of(frame);
  if (!view) return unchanged;
  if (view->ip().isFragment() && config_->refuseFragments()) {
    return refuse(IntakeRule::fragment, *view);
  }
  if (!view->isRight()) return unchanged;
  switch (view->type()) {
    case Ilvo::igmpMembershipQuery: return judgeQuery(*view);
    case Ilvo::igmpV1Report: return judgeOldReport(*view, 1);
    case Ilvo::igmpV2Report: return judgeOldReport(*view, 2);
    case Ilvo::igmpV2Leave: return judgeLeave(*view, frame.mostCost);
    case Ilvo::igmpV3Report: return judgeV3Report(*view, frame.mostCost);
    default: return unchanged;  // the querier counts it and does nothing else
  }
}

// A packet that was sent to this machine alone would change what all hosts of the link receive,
// and none of them would see it.
Intake::Refusal Intake::frameRefusal(const PacketView& view) const {
  if (config_->multicastOnly()) {
    if (!view.ip().dst().isMulticast()) return IntakeRule::notMulticast;
    if (view.hasMacs() && !view.isSentToMulticastMac()) return IntakeRule::notMulticast;
  }
  if (config_->ttlOne() && view.ip().ttl() != 1) return IntakeRule::wrongTtl;
  return {};
}

// A frame of this machine itself comes back where a device of the link reflects it.
bool Intake::isFromOwnAddressElsewhere(const PacketView& view) const {
  if (view.ip().src() != querier_->ipAddr() || !view.hasMacs()) return false;
  return !std::ranges::equal(view.sourceMac(), mac_);
}

void Intake::noteOwnAddress(const PacketView& view) {
  if (isFromOwnAddressElsewhere(view)) count(IntakeRule::ownAddress, view);
}

bool Intake::isLocal(IpAddr addr) const {
  if (!addr.isUnicast()) return false;
  return addr.isZero() || subnets_.empty() || subnets_.containsHost(addr);
}

// While a querier rebuilds its machines, the status knows more groups than they.
const Intake::GroupStatus* Intake::known(IpAddr group) const {
  const QuerierSm::GroupSmMap& machines = querier_->groupSm();
  if (const auto* found = machines.find(group)) return (*found)->groupStatus().get();
  const QuerierStatus::GroupMap& groups = querierStatus_->group();
  if (machines.size() == groups.size()) return nullptr;
  const auto* found = groups.find(group);
  return found == nullptr ? nullptr : found->get();
}

bool Intake::asks() const {
  return querierStatus_->state() == QuerierStatus::querierStateQuerier &&
         lastMemberQueryCount() != 0;
}

U64 Intake::lastMemberQueryCount() const {
  return querier_->querierConfig()->lastMemberQueryCount();
}

// Sources are asked about in two lists, with the S flag and without, each in packets of its own.
U64 Intake::sourceQueries(U64 sources) const {
  constexpr Mox::U32 headerBytes = 40;
  if (sources == 0) return 0;
  const Mox::U32 mtu = querier_->mtu();
  const U64 ofAPacket = mtu < headerBytes + 4 ? sources : (mtu - headerBytes) / 4;
  return 2 + sources / ofAPacket;
}

bool Intake::canAsk(U64 queries) {
  return queries == 0 || queryBudget_.has(queries * lastMemberQueryCount(), config_->maxQueryRate(),
                                          config_->maxQueryBurst());
}

bool Intake::mayAsk(U64 queries) {
  if (queries == 0) return true;
  const bool taken = queryBudget_.take(queries * lastMemberQueryCount(), config_->maxQueryRate(),
                                       config_->maxQueryBurst());
  status_->queryBurstMostIs(queryBudget_.used());
  return taken;
}

IntakeVerdict Intake::refuse(IntakeRule rule, const PacketView& view, IpAddr group) {
  count(rule, view, group);
  return {.packet = {}, .rule = rule, .isRefused = true};
}

bool Intake::count(IntakeRule rule, const PacketView& view, IpAddr group, U64 by) {
  const U64 counted = status_->countedInc(rule, by);
  Mox::Seconds& next = nextEvent_[static_cast<size_t>(rule)];
  const Mox::Seconds now = Mox::now();
  if (now < next) return false;
  next = now + eventInterval;
  watcher_.onIntakeEvent({.rule = rule,
                          .sender = view.ip().src(),
                          .mac = view.hasMacs() ? view.sourceMac() : std::span<const U8>(),
                          .group = group,
                          .count = counted});
  return true;
}

void Intake::noteMarks() {
  const Gmp::Igmp::MembershipCount& inProcess = Gmp::Igmp::membershipInProcess();
  status_->groupsMostIs(querierStatus_->group().size());
  status_->sourcesMostIs(querierStatus_->sources());
  process_.status->groupsMostIs(inProcess.groups);
  process_.status->sourcesMostIs(inProcess.sources);
}

}  // namespace Agent
