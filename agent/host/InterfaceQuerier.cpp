#include "InterfaceQuerier.h"

#include <exception>
#include <utility>

#include <Link/QueryDatagram.h>
#include <Mox/ActivityClock.h>
#include <Mox/GenericAccess.h>

namespace Agent {

using Gmp::Igmp::GroupLookahead;
using Gmp::Igmp::PublishedQuery;
using Gmp::Igmp::QuerierSm;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::makePtr;
using Mox::Seconds;

namespace {

// An interface that flaps may be down again when its port is opened.
constexpr Seconds retryInterval = 1.0;
constexpr Seconds portCheckInterval = 5.0;  // between two looks at an open port
constexpr Seconds problemInterval = 60.0;   // between two events of the same problem

// Packets are handed in by name, as by a host that knows the library by its registry only.
const Mox::Call<Mox::Ptr<Ilvo::Pkt>> doRxPkt(Mox::typeInfoOf<QuerierSm>(), "doRxPkt");

}  // namespace

class InterfaceQuerier::Election final : public QuerierStatus::NotifieeConst {
 public:
  Election(const Mox::Ptr<QuerierStatus>& status, InterfaceState& state)
      : NotifieeConst(status), state_(state) {}
  void onElectedQuerierAddr() override { state_.electedTimeIs(Mox::now()); }

 private:
  InterfaceState& state_;
};

InterfaceQuerier::InterfaceQuerier(const Services& services, const InterfaceSetup& setup)
    : services_(services),
      setup_(setup),
      status_(Gmp::Igmp::querierStatusFactory()),
      state_(makePtr<InterfaceState>(setup.name)),
      election_(std::make_unique<Election>(status_, *state_)),
      watcher_(setup.name, status_, services.sink),
      portTimer_(services.wheel, *this) {}

InterfaceQuerier::~InterfaceQuerier() { stop(); }

void InterfaceQuerier::linkIs(const Link* link) {
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
  flush();
}

// The new querier begins on the status that the one before left: only the first begins with none.
void InterfaceQuerier::start() {
  portTimer_.timeMinIs(Mox::now() + retryInterval);
  try {
    portIs(services_.openPort(link_, *this));
  } catch (const std::exception& error) {
    reportProblem("open", error.what());
    return;
  }
  ipAddr_ = *link_.primaryAddress();
  state_->addressIs(ipAddr_);
  presenceIs(Presence::up);
  const auto& wheel = services_.wheel;
  querier_ = Gmp::Igmp::querierSmFactory(setup_.config, status_, ipAddr_, link_.mtu, 0, wheel,
                                         wheel, wheel, false, &output_);
  state_->runningIs(true);
  // The router that was elected before may have gone since: its time counts from now.
  if (!status_->electedQuerierAddr().isZero()) state_->electedTimeIs(Mox::now());
  querier_->attrLogSmIs(services_.attrLogSm);
  querier_->mcastBoundaryIntfStatusIs(setup_.boundary);
}

void InterfaceQuerier::stop() {
  portTimer_.timeMinIs(Mox::never);
  output_.release();
  querier_ = nullptr;
  state_->runningIs(false);
  state_->electedTimeIs(0.0);
  portIs(nullptr);
}

// A port is cut to the length of the frames that were possible when it was opened.
void InterfaceQuerier::follow(const Link& link) {
  const bool longerFrames = link.mtu > link_.mtu;
  link_ = link;
  querier_->mtuIs(link.mtu);
  ipAddrIs(*link.primaryAddress());
  if (!longerFrames) return;
  try {
    portIs(services_.openPort(link_, *this));
  } catch (const std::exception& error) {
    portFailed(error.what());
  }
}

void InterfaceQuerier::portIs(std::unique_ptr<FramePort> port) {
  port_ = std::move(port);
  droppedReported_ = 0;
}

// The other routers know the querier by its address, so one with a new address has to be elected
// again. An election that was lost stays lost while retransmissions are pending.
void InterfaceQuerier::ipAddrIs(IpAddr addr) {
  if (addr == ipAddr_) return;
  ipAddr_ = addr;
  state_->addressIs(addr);
  report(Event::addressChanged);
  querier_->ipAddrIs(addr);
  const bool isQuerier =
      status_->state() == QuerierStatus::querierStateQuerier && !querier_->transitionToNonQuerier();
  if (isQuerier && setup_.config->sendQuery()) querier_->becomeQuerier();
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

// Opens a port that could not be opened before; checks an open one for lost packets.
void InterfaceQuerier::handlePortTimer() {
  if (!querier_) {
    start();
    return;
  }
  portTimer_.timeMinIs(Mox::now() + portCheckInterval);
  const Mox::U64 dropped = port_->dropped();
  if (dropped == droppedReported_) return;
  if (reportProblem("dropped", "packets come faster than they are read: " +
                                   std::to_string(dropped) + " lost so far")) {
    droppedReported_ = dropped;
  }
}

void InterfaceQuerier::transmit(const PublishedQuery& query) {
  const IpAddr group = query.dstGroup;
  // Another router's group-specific query may name any address, and this querier retransmits the
  // query once that router falls silent.
  if (!queryDestination(group).isMulticast()) {
    reportProblem("notMulticast", "a query for " + group.stringValue() +
                                      " is due, which is no multicast group: not sent");
    return;
  }
  const std::string failed =
      port_->send(queryFrame(link_.mac, query.src, group, query.message->data()));
  if (!failed.empty()) {
    reportProblem(failed, "cannot send a query: " + failed);
  } else if (services_.reportQueries) {
    services_.sink.event(querySentEvent(setup_.name, group, query.message));
  }
}

void InterfaceQuerier::rxFrame(std::span<const Mox::U8> frame) {
  const std::span<const Mox::U8> packet = ipv4Of(frame);
  if (packet.empty() || !querier_ || isQueryFrom(link_.mac, ipAddr_, frame)) return;
  batch_.push_back(makePtr<Ilvo::Pkt>(packet));
}

void InterfaceQuerier::rxBatchEnd() {
  const auto prefetch = [this](size_t at) {
    if (at < batch_.size()) querier_->prefetchRxPkt(*batch_[at]);
  };
  for (size_t i = 0; i < GroupLookahead::ahead; ++i) prefetch(i);
  for (size_t i = 0; i < batch_.size(); ++i) {
    prefetch(i + GroupLookahead::ahead);
    services_.turn();  // timers that the packet arms count from the real now
    doRxPkt(*querier_, batch_[i]);
    flush();
    services_.turn();
  }
  batch_.clear();
}

void InterfaceQuerier::portFailed(const std::string& why) {
  reportProblem("port", "cannot receive any more, trying again: " + why);
  stop();
  portTimer_.timeMinIs(Mox::now() + retryInterval);
  services_.turn();  // its host may sleep beyond that
}

void InterfaceQuerier::flush() { watcher_.flush(); }

InterfaceView InterfaceQuerier::view() const {
  return {.name = setup_.name,
          .address = ipAddr_,
          .config = setup_.config,
          .status = status_,
          .running = running(),
          .electedTime = state_->electedTime()};
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
