#include "Router.h"

#include <utility>

#include <AgentTestSupport/TestLink.h>
#include <Mox/ActivityClock.h>

#include "TakeOver.h"
#include "Wire.h"

namespace Sim {

using Gmp::Igmp::QuerierStatus;
using Mox::makePtr;

class Router::Port final : public Agent::FramePort {
 public:
  Port(Router& router, Agent::FrameReceiver& receiver) : router_(router) {
    router_.receiver_ = &receiver;
  }
  ~Port() override { router_.receiver_ = nullptr; }
  std::error_code send(std::span<const U8> packet) override {
    router_.send(packet);
    return {};
  }
  Agent::PortCounts counts() override { return {}; }

 private:
  Router& router_;
};

Router::Router(Node node, Ilvo::IpAddr address, const Settings& settings, Transmit transmit)
    : node_(node),
      address_(address),
      settings_(settings),
      transmit_(std::move(transmit)),
      wheel_(makePtr<Obel::TimerWheel>(Mox::now())),
      name_("r" + std::to_string(node)),
      config_(Gmp::Igmp::querierConfigFactory(name_)),
      intake_(makePtr<Agent::IntakeConfig>(name_)) {
  settings_.applyTo(*config_);
  services_ = std::make_unique<Agent::InterfaceQuerier::Services>(Agent::InterfaceQuerier::Services{
      .wheel = wheel_,
      .openPort = [this](const Agent::Link&, Agent::FrameReceiver& receiver)
          -> std::unique_ptr<Agent::FramePort> { return std::make_unique<Port>(*this, receiver); },
      .sink = events_,
      .process = process_,
      .batch = batch_,
      .pending = &pending_});
  start();
}

Router::~Router() = default;

Agent::Link Router::link() const {
  Agent::Link link = Agent::runningLink(address_, {0x02, 0, 0, 0, 0, static_cast<U8>(node_ + 1)});
  link.name = name_;
  link.up = link.running = up_;
  return link;
}

void Router::storeIs() {
  if (!store_) store_ = std::make_unique<Store>();
  if (querier_) store_->follow(querier_->status());
}

void Router::sendToStore() {
  if (store_) store_->receive();
}

void Router::start() {
  Agent::InterfaceSetup setup{.name = name_, .config = config_, .intake = intake_};
  if (fault_ != Fault::forgetsOnRestart) setup.kept = keptState();
  if (setup.kept) {
    Agent::leavePassed(*setup.kept,
                       {.lost = store_->lostTime(), .now = Mox::now(), .grace = storeGrace});
  }
  querier_ = std::make_unique<Agent::InterfaceQuerier>(*services_, setup);
  if (store_) store_->follow(querier_->status());
  const Agent::Link now = link();
  querier_->linkIs(&now);
}

void Router::crash() {
  if (store_) store_->forget();
  querier_ = nullptr;
  stopped_ = false;
  ring_.clear();
}

void Router::kill() {
  if (!querier_) return;
  store_->lose();
  querier_ = nullptr;
  stopped_ = false;
  ring_.clear();
}

void Router::upIs(bool up) {
  up_ = up;
  if (!querier_) return;
  if (!up) ring_.clear();
  if (up && fault_ == Fault::forgetsOnRestart) querier_->clearGroups({});
  const Agent::Link now = link();
  querier_->linkIs(&now);
}

void Router::addressIs(Ilvo::IpAddr address) {
  address_ = address;
  if (!querier_) return;
  const Agent::Link now = link();
  querier_->linkIs(&now);
}

void Router::settingsIs(const Settings& settings) {
  settings_ = settings;
  settings_.applyTo(*config_);
  pending_.flush();
}

void Router::stop() { stopped_ = isRunning(); }

// As the agent's loop does after it was stopped: it rebuilds what was silent for too long, then
// handles what the ring kept, then the timers.
std::deque<const Frame*> Router::resume() {
  stopped_ = false;
  if (!isRunning()) return {};
  querier_->rebuildAfterGap(Mox::now() - std::min(wheel_->nextDue(), Mox::now()));
  std::deque<const Frame*> frames = std::exchange(ring_, {});
  for (const Frame* frame : frames) handIn(*frame);
  receiver_->rxBatchEnd();
  turn();
  return frames;
}

bool Router::isDropped(const Frame& frame) const {
  switch (fault_) {
    case Fault::silentWinner: return frame.kind == Frame::generalQuery;
    case Fault::dropsLeaves:
      return frame.kind == Frame::specificQuery || (frame.drops != 0 && frame.asserts == 0);
    default: return false;
  }
}

void Router::receive(const Frame& frame) {
  sendToStore();
  if (!isRunning() || isDropped(frame)) return;
  if (stopped_) {
    ring_.push_back(&frame);
    return;
  }
  handIn(frame);
  receiver_->rxBatchEnd();
  wheel_->turn(Mox::now());
  pending_.flush();
}

void Router::handIn(const Frame& frame) {
  receiver_->rxPacket(
      {.frame = frame.bytes, .packet = frame.packet(), .outgoing = frame.sender == node_});
}

void Router::send(std::span<const U8> packet) {
  if (fault_ == Fault::silentWinner && queryOf(packet)->isGeneral) return;
  transmit_(packet);
  if (fault_ == Fault::sendsTwice) transmit_(packet);
}

bool Router::turn() {
  sendToStore();
  if (fault_ == Fault::hoards && isRunning()) {
    for (auto at = status().group().begin(); at != status().group().end(); ++at) {
      const auto group = querier_->status()->group(at.key());
      hoard_.emplace(group.get(), group);
    }
  }
  const size_t fired = wheel_->turn(Mox::now());
  pending_.flush();
  return fired != 0;
}

Seconds Router::nextDue() const { return stopped_ ? Mox::never : wheel_->nextDue(); }

Mask Router::oldModeSources() const {
  Mask all = 0;
  for (unsigned g = 0; g < groupsMost; ++g) {
    const auto group = status().group(groupAddr(g));
    if (group && group->compatibilityMode() != Gmp::Igmp::igmpVersion3) {
      all |= inGroup(g, namedSources);
    }
  }
  return all;
}

Mask Router::disregarded(const Frame& report) const {
  Mask all = 0;
  for (const Record& record : report.records) {
    const auto group = status().group(groupAddr(record.group));
    if (record.type == Record::toIn && group &&
        group->compatibilityMode() == Gmp::Igmp::igmpVersion1) {
      all |= inGroup(record.group, wholeGroup);
    }
  }
  return all;
}

Mask Router::tracked() const {
  Mask all = 0;
  for (unsigned g = 0; g < groupsMost; ++g) {
    const auto group = status().group(groupAddr(g));
    // Lists of sources count for nothing while older hosts are present (RFC 3376 7.3.2).
    if (!group || group->compatibilityMode() != Gmp::Igmp::igmpVersion3) continue;
    for (unsigned s = 0; s < sourcesMost; ++s) {
      if (group->source(sourceAddr(s))) all |= inGroup(g, 1U << s);
    }
  }
  return all;
}

Mask Router::served() const {
  if (!querier_) return 0;
  Mask all = 0;
  for (unsigned g = 0; g < groupsMost; ++g) {
    const auto group = status().group(groupAddr(g));
    if (!group) continue;
    const bool exclude = group->filterMode() == Gmp::Igmp::filterModeExclude;
    Mask mask = exclude ? wholeGroup : 0;
    for (unsigned s = 0; s < sourcesMost; ++s) {
      const auto source = group->source(sourceAddr(s));
      if (!source) continue;
      if (exclude && source->expired()) mask &= ~(1U << s);
      if (!exclude && !source->expired()) mask |= 1U << s;
    }
    all |= inGroup(g, mask);
  }
  return all;
}

}  // namespace Sim
