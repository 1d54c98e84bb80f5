#include "World.h"

#include <algorithm>
#include <utility>

#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <Mox/Trace.h>
#include <MoxBase/Fatal.h>

namespace Agent::Scenario {

using Gmp::Igmp::QuerierSm;
using Mox::Ptr;
using Mox::Seconds;

class Interface::QueryObserver final : public QuerierSm::NotifieeConst {
 public:
  QueryObserver(const Ptr<QuerierSm>& querier, Interface& interface)
      : NotifieeConst(querier), interface_(interface) {}
  void onWritableCount() override { interface_.writeQuery(*notifier()); }

 private:
  Interface& interface_;
};

Interface::Interface(const std::string& name, const QuerierArguments& arguments,
                     Observations& observations, const ScenarioOptions& options,
                     Ptr<const Obel::TimerWheel> wheel, Ptr<Gmp::Igmp::GmpAttrLogSm> monitor)
    : name_(name),
      arguments_(arguments),
      observations_(observations),
      wheel_(std::move(wheel)),
      monitor_(std::move(monitor)),
      config_(Gmp::Igmp::querierConfigFactory(name)),
      status_(Gmp::Igmp::querierStatusFactory()),
      statusObserver_(name, status_, observations, options.changes, [this] {
        if (!std::exchange(counted_, true)) countedAt_ = observations_.mark();
      }) {}

Interface::~Interface() = default;

// A query that is published inside the construction is seen only afterwards; it was sent before it
// was counted, so its line precedes those of the count.
void Interface::create() {
  remove();
  observations_.holdBackIs(true);
  counted_ = false;
  querier_ = Gmp::Igmp::querierSmFactory(config_, status_, arguments_.ipAddr, arguments_.mtu,
                                         arguments_.startupQueryIntervalDefault, wheel_, wheel_,
                                         wheel_, arguments_.debugYieldAfterOne);
  if (querier_->writableCount() != 0) {
    const size_t end = observations_.mark();
    writeQuery(*querier_);
    const std::string line = observations_.takeFrom(end);
    observations_.insertAt(counted_ ? countedAt_ : end, line);
  }
  observations_.holdBackIs(false);
  queryObserver_ = std::make_unique<QueryObserver>(querier_, *this);
  querier_->attrLogSmIs(monitor_);
  querier_->mcastBoundaryIntfStatusIs(boundary_);
}

void Interface::remove() {
  queryObserver_ = nullptr;
  querier_ = nullptr;
}

void Interface::boundaryIs(Ptr<const Ilvo::IntfBoundaryStatus> boundary) {
  boundary_ = std::move(boundary);
  if (querier_) querier_->mcastBoundaryIntfStatusIs(boundary_);
}

void Interface::writeQuery(const QuerierSm& querier) {
  observations_.begin("tx")
      .text("interface", name_)
      .plain("dstGroup", querier.dstGroup().stringValue())
      .hex("packet", querier.sendPkt()->data())
      .end();
}

namespace {

// Handles that are made on first use are made here, so that all of them are known.
void traceEverything(Observations& observations) {
  constexpr int everything = 9;
  Mox::TraceHandle::named("GmpAttrLogSm", "GmpAttrLogSm.tin");
  for (Mox::TraceHandle* handle : Mox::TraceHandle::all()) handle->facilityLevelIs(everything);
  Mox::traceSinkIs([&observations](const Mox::TraceLine& line) {
    observations.begin("trace")
        .plain("handle", line.handle.name())
        .number("level", line.level)
        .text("text", line.text)
        .end();
  });
}

void traceNothing() {
  for (Mox::TraceHandle* handle : Mox::TraceHandle::all()) {
    handle->facilityLevelIs(Mox::TraceHandle::off);
  }
  Mox::traceSinkIs({});
}

}  // namespace

namespace {

// Observations so far are written, also when a fatal assertion ends the run.
Observations* observed = nullptr;
void writeObserved() { observed->flush(); }

}  // namespace

World::World(const ScenarioOptions& options, std::FILE* out, Seconds start)
    : options_(options),
      observations_(out),
      wheel_(Mox::makePtr<Obel::TimerWheel>(start)),
      socket_(Mox::makePtr<CongestedSocket>()),
      monitor_(Gmp::Igmp::gmpAttrLogSmFactory(socket_)) {
  Mox::eventLogSinkIs([this](const Mox::EventLogEntry& entry) {
    observations_.begin("log")
        .plain("id", entry.message.name)
        .number("severity", entry.message.severity)
        .text("text", entry.text)
        .end();
  });
  if (options.traces) traceEverything(observations_);
  observed = &observations_;
  Mox::fatalHookIs(writeObserved);
}

World::~World() {
  Mox::fatalHookIs(nullptr);
  Mox::eventLogSinkIs({});
  if (options_.traces) traceNothing();
}

Interface* World::interface(const std::string& name) const {
  const auto found = interfaces_.find(name);
  return found == interfaces_.end() ? nullptr : found->second.get();
}

Interface& World::interfaceIs(const std::string& name, const QuerierArguments& arguments) {
  auto& made = interfaces_[name];
  made = std::make_unique<Interface>(name, arguments, observations_, options_, wheel_, monitor_);
  return *made;
}

void World::clockIs(Seconds time) {
  if (time > Mox::now()) firedSinceClockMoved_ = 0;
  Mox::virtualTimeIs(time);
}

bool World::advanceTo(Seconds time) {
  constexpr size_t settleLimit = 100000;
  while (wheel_->nextDue() <= time) {
    const Seconds due = std::max(Mox::now(), wheel_->nextDue());
    clockIs(due);
    // One by one: a callback may arm a timer for a time before that of others which are due.
    firedSinceClockMoved_ += wheel_->turn(due, 1);
    if (firedSinceClockMoved_ > settleLimit || ++turns_ > options_.turnsMost) return false;
  }
  clockIs(time);
  return true;
}

}  // namespace Agent::Scenario
