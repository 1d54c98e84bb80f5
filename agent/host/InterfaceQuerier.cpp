#include <Host/InterfaceQuerier.h>

#include <exception>
#include <utility>

#include <Link/QueryDatagram.h>
#include <Mox/ActivityClock.h>
#include <Mox/GenericAccess.h>

namespace Agent {

using Gmp::Igmp::GroupLookahead;
using Gmp::Igmp::QuerierSm;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::makePtr;
using Mox::Seconds;

namespace {

constexpr Seconds retryInterval =
    1.0;  // an interface that flaps may be down again when it is opened
constexpr Seconds careInterval = 5.0;      // between two looks at an open port
constexpr Seconds troubleInterval = 60.0;  // between two events of the same trouble

// Packets go in by name, as from a host that knows the library by its registry only.
const Mox::Call<Mox::Ptr<Ilvo::Pkt>> doRxPkt(Mox::typeInfoOf<QuerierSm>(), "doRxPkt");

}  // namespace

// Each step of the querier's writableCount is a query to send.
class InterfaceQuerier::Output final : public QuerierSm::NotifieeConst {
 public:
  Output(const Mox::Ptr<QuerierSm>& querier, InterfaceQuerier& owner)
      : NotifieeConst(querier), owner_(owner) {}
  void onWritableCount() override { owner_.transmit(); }

 private:
  InterfaceQuerier& owner_;
};

class InterfaceQuerier::Election final : public QuerierStatus::NotifieeConst {
 public:
  Election(const Mox::Ptr<QuerierStatus>& status, InterfaceState& state)
      : NotifieeConst(status), state_(state) {}
  void onElectedQuerierAddr() override { state_.electedTimeIs(Mox::now()); }

 private:
  InterfaceState& state_;
};

InterfaceQuerier::InterfaceQuerier(const Services& services, const Setup& setup)
    : services_(services),
      setup_(setup),
      status_(Gmp::Igmp::querierStatusFactory()),
      state_(makePtr<InterfaceState>(setup.name)),
      election_(std::make_unique<Election>(status_, *state_)),
      watcher_(setup.name, status_, services.sink),
      care_(services.wheel, *this) {}

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

// The state of before is what the new querier begins with, so only the first one begins with none.
void InterfaceQuerier::start() {
  care_.timeMinIs(Mox::now() + retryInterval);
  try {
    portIs(services_.openPort(link_, *this));
  } catch (const std::exception& error) {
    tellTrouble("open", error.what());
    return;
  }
  ipAddr_ = *link_.primaryAddress();
  state_->addressIs(ipAddr_);
  presenceIs(Presence::up);
  const auto& wheel = services_.wheel;
  querier_ = Gmp::Igmp::querierSmFactory(setup_.config, status_, ipAddr_, link_.mtu, 0, wheel,
                                         wheel, wheel, false);
  state_->runningIs(true);
  // Who was elected before may have gone meanwhile: it counts from now.
  if (!status_->electedQuerierAddr().isZero()) state_->electedTimeIs(Mox::now());
  querier_->attrLogSmIs(services_.attrLogSm);
  querier_->mcastBoundaryIntfStatusIs(setup_.boundary);
  output_ = std::make_unique<Output>(querier_, *this);
  // A querier that was one before asks inside its constructor, before anybody could watch.
  if (querier_->writableCount() != 0) transmit();
}

void InterfaceQuerier::stop() {
  care_.timeMinIs(Mox::never);
  output_ = nullptr;
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
  droppedTold_ = 0;
}

// The others know the querier by its address, so one with a new address has to win them again. An
// election that is lost stays lost, while what was begun before is still being asked.
void InterfaceQuerier::ipAddrIs(IpAddr addr) {
  if (addr == ipAddr_) return;
  ipAddr_ = addr;
  state_->addressIs(addr);
  tell(Event::addressChanged);
  querier_->ipAddrIs(addr);
  const bool isQuerier =
      status_->state() == QuerierStatus::querierStateQuerier && !querier_->transitionToNonQuerier();
  if (isQuerier && setup_.config->sendQuery()) querier_->becomeQuerier();
}

void InterfaceQuerier::presenceIs(Presence presence) {
  if (std::exchange(presence_, presence) == presence) return;
  switch (presence) {
    case Presence::up: tell(Event::interfaceUp); return;
    case Presence::down: tell(Event::interfaceDown); return;
    case Presence::gone: tell(Event::interfaceGone); return;
    case Presence::unknown: return;
  }
}

// A port that could not be opened is tried again; one that is open is asked whether it keeps up.
void InterfaceQuerier::handleCare() {
  if (!querier_) {
    start();
    return;
  }
  care_.timeMinIs(Mox::now() + careInterval);
  const Mox::U64 dropped = port_->dropped();
  if (dropped == droppedTold_) return;
  if (tellTrouble("dropped", "packets come faster than they are read: " + std::to_string(dropped) +
                                 " lost so far")) {
    droppedTold_ = dropped;
  }
}

void InterfaceQuerier::transmit() {
  const IpAddr group = querier_->dstGroup();
  // A group-specific query of another router may name anything, and is asked on when it falls
  // silent.
  if (!queryDestination(group).isMulticast()) {
    tellTrouble("notMulticast", "a query for " + group.stringValue() +
                                    " is due, which is no multicast group: not sent");
    return;
  }
  const std::string failed =
      port_->send(queryFrame(link_.mac, querier_->ipAddr(), group, querier_->sendPkt()->data()));
  if (!failed.empty()) {
    tellTrouble(failed, "cannot send a query: " + failed);
  } else if (services_.tellQueries) {
    services_.sink.event(querySentEvent(setup_.name, group, querier_->sendPkt()));
  }
}

void InterfaceQuerier::rxFrame(std::span<const Mox::U8> frame) {
  const std::span<const Mox::U8> packet = ipv4Of(frame);
  if (packet.empty() || !querier_ || isQueryFrom(link_.mac, ipAddr_, frame)) return;
  batch_.push_back(makePtr<Ilvo::Pkt>(packet));
}

void InterfaceQuerier::rxBatchEnd() {
  const auto expect = [this](size_t at) {
    if (at < batch_.size()) querier_->expectRxPkt(*batch_[at]);
  };
  for (size_t i = 0; i < GroupLookahead::ahead; ++i) expect(i);
  for (size_t i = 0; i < batch_.size(); ++i) {
    expect(i + GroupLookahead::ahead);
    services_.turn();  // timers that the packet arms count from the real now
    doRxPkt(*querier_, batch_[i]);
    flush();
    services_.turn();
  }
  batch_.clear();
}

void InterfaceQuerier::portFailed(const std::string& why) {
  tellTrouble("port", "cannot receive any more, trying again: " + why);
  stop();
  care_.timeMinIs(Mox::now() + retryInterval);
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

void InterfaceQuerier::tell(Event::Kind kind, std::string text) {
  Event event;
  event.time = Mox::now();
  event.kind = kind;
  event.interface = setup_.name;
  event.address = ipAddr_;
  event.text = std::move(text);
  services_.sink.event(event);
}

bool InterfaceQuerier::tellTrouble(const std::string& key, const std::string& text) {
  const Seconds now = Mox::now();
  const auto [told, first] = troubleTold_.try_emplace(key, now);
  if (!first && now < told->second + troubleInterval) return false;
  told->second = now;
  tell(Event::error, text);
  return true;
}

}  // namespace Agent
