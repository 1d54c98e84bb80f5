#include "InterfaceQuerier.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include <fmt/format.h>

#include <Link/RingSize.h>
#include <Mox/ActivityClock.h>

#include "MacText.h"

namespace Agent {

using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::makePtr;
using Mox::Seconds;

namespace {

// An interface that flaps may be down again when its port is opened.
constexpr Seconds retryInterval = 1.0;
constexpr Seconds longestPortCheckInterval = 5.0;
constexpr Seconds problemInterval = 60.0;  // between two events of the same problem

// What the port counts, where the state publishes it, and the event of its steps.
struct CountedFrames {
  Mox::U64 PortCounts::*counted;
  Mox::U64 (InterfaceState::*published)() const;
  Mox::U64 (InterfaceState::*step)(Mox::U64);
  const char* text;
};
constexpr std::array countedFrames{
    CountedFrames{&PortCounts::lost, &InterfaceState::framesLost, &InterfaceState::framesLostInc,
                  "packets come faster than they are read: {} lost so far"},
    CountedFrames{&PortCounts::unparsable, &InterfaceState::framesUnparsable,
                  &InterfaceState::framesUnparsableInc,
                  "frames without a whole IPv4 packet: {} so far"},
    CountedFrames{&PortCounts::fragments, &InterfaceState::fragmentsReceived,
                  &InterfaceState::fragmentsReceivedInc,
                  "IGMP in fragments, which are not reassembled: {} so far"},
    CountedFrames{&PortCounts::otherVlans, &InterfaceState::otherVlanFrames,
                  &InterfaceState::otherVlanFramesInc,
                  "IGMP tagged for VLANs, which are other links: {} so far"}};

}  // namespace

class InterfaceQuerier::Election final : public QuerierStatus::NotifieeConst {
 public:
  Election(const Mox::Ptr<QuerierStatus>& status, InterfaceState& state)
      : NotifieeConst(status), state_(state) {}
  void onState() override { state_.roleChangesInc(1); }
  void onElectedQuerierAddr() override {
    state_.electedTimeIs(notifier()->electedQuerierAddr().isZero() ? 0.0 : Mox::now());
  }

 private:
  InterfaceState& state_;
};

InterfaceQuerier::InterfaceQuerier(const Services& services, const InterfaceSetup& setup)
    : services_(services),
      setup_(setup),
      status_(setup.kept ? setup.kept : Gmp::Igmp::querierStatusFactory()),
      state_(makePtr<InterfaceState>(setup.name)),
      election_(std::make_unique<Election>(status_, *state_)),
      watcher_(setup.name, status_, services.sink, services.pending, services.eventScope,
               FirstGroups::known),
      intakeStatus_(makePtr<IntakeStatus>(setup.name)),
      intake_(services.process, setup.intake, intakeStatus_, status_, *this),
      portTimer_(services.wheel, *this),
      resendTimer_(services.wheel, *this),
      deferredTimer_(services.wheel, *this),
      clearTimer_(services.wheel, *this),
      retireTimer_(services.wheel, *this) {
  if (!setup_.kept) return;
  state_->takenOverTimeIs(Mox::now());
  state_->takenOverGroupsIs(status_->group().size());
  Event event{.time = Mox::now(), .interface = setup_.name, .kind = Event::takenOver};
  event.count = state_->takenOverGroups();
  services_.sink.event(event);
}

InterfaceQuerier::~InterfaceQuerier() { stop(); }

void InterfaceQuerier::prepare(const Link* link) {
  if (link != nullptr && isUsable(*link)) portIs(services_.openPort(*link, *this));
}

void InterfaceQuerier::boundaryIs(Mox::Ptr<const Ilvo::IntfBoundaryStatus> boundary) {
  setup_.boundary = std::move(boundary);
  if (querier_) querier_->mcastBoundaryIntfStatusIs(setup_.boundary);
}

void InterfaceQuerier::linkIs(const Link* link) {
  if (link != nullptr) publishLink(*link);
  if (link == nullptr || !isUsable(*link)) stop();
  if (link != nullptr && link_.index != 0 && link->index != link_.index) {
    stop();
    presenceIs(Presence::gone);  // this is another one of the same name
  }
  if (link == nullptr) {
    link_ = Link();
    presenceIs(Presence::gone);
  } else if (!isUsable(*link)) {
    link_ = *link;
    presenceIs(Presence::down);
  } else if (querier_) {
    follow(*link);
  } else {
    link_ = *link;
    start();
  }
  watcher_.flush();
}

void InterfaceQuerier::publishLink(const Link& link) {
  state_->indexIs(link.index);
  state_->macIs(macText(link.mac));
}

// The new querier begins on the status that the one before left: only the first begins with none.
void InterfaceQuerier::start() {
  portTimer_.timeMinIs(Mox::now() + retryInterval);
  try {
    if (!port_) portIs(services_.openPort(link_, *this));
  } catch (const std::exception& error) {
    reportProblem("open", error.what());
    return;
  }
  intakeLinkIs();
  ipAddr_ = *link_.primaryAddress();
  state_->addressIs(ipAddr_);
  presenceIs(Presence::up);
  makeQuerier();
  state_->runningIs(true);
  // The router that was elected before may have gone since: its time counts from now.
  if (!status_->electedQuerierAddr().isZero()) state_->electedTimeIs(Mox::now());
}

// On the status of a querier it asks at once, as hosts may have joined or left meanwhile; on that
// of a non-querier it would ask with the intervals of the router that was elected. One that may not
// ask has no role, and would wait without end for a router that may have gone.
void InterfaceQuerier::makeQuerier() {
  if (status_->state() != QuerierStatus::querierStateQuerier || !setup_.config->sendQuery()) {
    status_->stateIs(QuerierStatus::querierStateInitial);
    status_->electedQuerierAddrIs(IpAddr());
  }
  const auto& wheel = services_.wheel;
  querier_ = Gmp::Igmp::querierSmFactory(setup_.config, status_, ipAddr_, link_.mtu, 0, wheel,
                                         wheel, wheel, false, &output_);
  querier_->attrLogSmIs(services_.attrLogSm);
  querier_->mcastBoundaryIntfStatusIs(setup_.boundary);
  intake_.querierIs(querier_);
}

// Its groups, perhaps a million, are left.
void InterfaceQuerier::querierDel() {
  if (!querier_) return;
  intake_.querierIs(nullptr);
  output_.release();
  querier_->end();
  retired_.push_back(std::exchange(querier_, nullptr));
  handleRetireTimer();
}

void InterfaceQuerier::rebuildAfterGap(Seconds late) {
  if (!querier_ || late <= status_->queryResponseInterval() - portCheckInterval()) return;
  reportProblem("gap", fmt::format("nothing was handled for {:.1f} s: hosts are asked anew", late));
  querierDel();
  makeQuerier();
}

void InterfaceQuerier::stop() {
  stopQuerier();
  portIs(nullptr);
}

void InterfaceQuerier::stopQuerier() {
  portTimer_.timeMinIs(Mox::never);
  resendTimer_.timeMinIs(Mox::never);
  deferredTimer_.timeMinIs(Mox::never);
  state_->deferredLostInc(deferred_.clear());
  dropUnsent();
  sentFrom_.clear();
  querierDel();
  state_->runningIs(false);
  state_->electedTimeIs(0.0);
}

void InterfaceQuerier::intakeLinkIs() {
  PrefixList subnets;
  for (const LinkAddress& each : link_.addresses) subnets.add(each.address, each.prefixLength);
  intake_.linkIs(link_.mac, std::move(subnets));
}

// A port has room for the frames that were possible when it was opened.
void InterfaceQuerier::follow(const Link& link) {
  const bool longerFrames = ringBlockBytes(link.mtu) > ringBlockBytes(link_.mtu);
  link_ = link;
  intakeLinkIs();
  querier_->mtuIs(link.mtu);
  ipAddrIs(*link.primaryAddress());
  if (!longerFrames) return;
  try {
    auto port = services_.openPort(link_, *this);
    port_->handOver();  // the new one has only what arrived since
    portIs(std::move(port));
  } catch (const std::exception& error) {
    portFailed(error.what());
  }
}

void InterfaceQuerier::portIs(std::unique_ptr<FramePort> port) {
  takeCounts();
  port_ = std::move(port);
  counted_ = PortCounts();
}

// A port counts from its opening, the state from the start of the agent.
void InterfaceQuerier::takeCounts() {
  if (!port_) return;
  const PortCounts now = port_->counts();
  for (const CountedFrames& row : countedFrames) {
    const Mox::U64 more = now.*row.counted - counted_.*row.counted;
    if (more != 0) ((*state_).*row.step)(more);
  }
  counted_ = now;
}

void InterfaceQuerier::reportCounts() {
  for (const CountedFrames& row : countedFrames) {
    const Mox::U64 count = ((*state_).*row.published)();
    if (count == reported_.*row.counted) continue;
    if (reportProblem(row.text, fmt::format(fmt::runtime(row.text), count))) {
      reported_.*row.counted = count;
    }
  }
}

// The other routers know the querier by its address, so one with a new address has to be elected
// again. So has one whose new address is lower than the querier's, which would never give way
// otherwise: it then asks with its own times. Any other election that was lost stays lost, also
// while retransmissions are pending.
void InterfaceQuerier::ipAddrIs(IpAddr addr) {
  if (addr == ipAddr_) return;
  ipAddr_ = addr;
  dropUnsent();  // they are from the old one
  state_->addressIs(addr);
  report(Event::addressChanged);
  querier_->ipAddrIs(addr);
  const bool isQuerier =
      status_->state() == QuerierStatus::querierStateQuerier && !querier_->transitionToNonQuerier();
  const bool beatsElected = addr < status_->electedQuerierAddr();
  if (!(isQuerier || beatsElected) || !setup_.config->sendQuery()) return;
  querier_->transitionToNonQuerierIs(false);
  querier_->becomeQuerier();
  if (isQuerier) return;
  querier_->handleRobustness();
  querier_->handleQueryResponseInterval();
  querier_->handleQueryInterval();
}

void InterfaceQuerier::presenceIs(Presence presence) {
  if (std::exchange(presence_, presence) == presence) return;
  switch (presence) {
    case Presence::up: report(Event::interfaceUp); return;
    case Presence::down: report(Event::interfaceDown); return;
    case Presence::gone: report(Event::interfaceGone); return;
    case Presence::unknown: return;
  }
}

// Between two looks at an open port. In a gap that is longer than the response interval, the timer
// of a look becomes late by half of it at least. Each look wakes a process that is idle.
Seconds InterfaceQuerier::portCheckInterval() const {
  return std::min(longestPortCheckInterval, 0.5 * status_->queryResponseInterval());
}

// Opens a port that could not be opened before; reads the counts of an open one.
void InterfaceQuerier::handlePortTimer() {
  if (!querier_) {
    start();
    return;
  }
  portTimer_.timeMinIs(Mox::now() + portCheckInterval());
  takeCounts();
  reportCounts();
}

void InterfaceQuerier::portFailed(const std::string& why) {
  if (isEnding_) return stop();
  reportProblem("port", "cannot receive any more, trying again: " + why);
  stop();
  portTimer_.timeMinIs(Mox::now() + retryInterval);
}

InterfaceView InterfaceQuerier::view() const {
  return {.name = setup_.name,
          .address = ipAddr_,
          .status = status_,
          .running = running(),
          .electedTime = state_->electedTime(),
          .state = state_,
          .intake = setup_.intake,
          .intakeStatus = intakeStatus_};
}

void InterfaceQuerier::report(Event::Kind kind, std::string text) {
  Event event;
  event.time = Mox::now();
  event.kind = kind;
  event.interface = setup_.name;
  event.address = ipAddr_;
  event.text = std::move(text);
  services_.sink.event(event);
}

bool InterfaceQuerier::reportProblem(const std::string& key, const std::string& text) {
  const Seconds now = Mox::now();
  const auto [reported, first] = problemReported_.try_emplace(key, now);
  if (!first && now < reported->second + problemInterval) return false;
  reported->second = now;
  report(Event::error, text);
  return true;
}

}  // namespace Agent
