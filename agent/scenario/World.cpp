#include "World.h"

#include <algorithm>
#include <utility>

#include <Mox/ActivityClock.h>
#include <Mox/EventLog.h>
#include <Mox/Trace.h>
#include <MoxBase/Fatal.h>

namespace Agent::Scenario {

using Gmp::Igmp::PublishedQuery;
using Mox::Ptr;
using Mox::Seconds;

Interface::Interface(const std::string& name, const QuerierArguments& arguments,
                     Observations& observations, const ScenarioOptions& options,
                     Ptr<const Obel::TimerWheel> wheel, Ptr<Gmp::Igmp::GmpAttrLogSm> monitor)
    : name_(name),
      arguments_(arguments),
      observations_(observations),
      wheel_(std::move(wheel)),
      monitor_(std::move(monitor)),
      config_(Gmp::Igmp::querierConfigFactory(name)),
      status_(Gmp::Igmp::querierStatusFactory()) {
  if (options.changes) statusObserver_.emplace(name, status_, observations);
}

Interface::~Interface() = default;

void Interface::create() {
  remove();
  querier_ = Gmp::Igmp::querierSmFactory(config_, status_, arguments_.ipAddr, arguments_.mtu,
                                         arguments_.startupQueryIntervalDefault, wheel_, wheel_,
                                         wheel_, arguments_.debugYieldAfterOne, &output_);
  querier_->attrLogSmIs(monitor_);
  querier_->mcastBoundaryIntfStatusIs(boundary_);
}

void Interface::remove() {
  output_.release();
  querier_ = nullptr;
}

void Interface::boundaryIs(Ptr<const Ilvo::IntfBoundaryStatus> boundary) {
  boundary_ = std::move(boundary);
  if (querier_) querier_->mcastBoundaryIntfStatusIs(boundary_);
}

void Interface::writeQuery(const PublishedQuery& query) {
  observations_.begin("tx")
      .text("interface", name_)
      .plain("dstGroup", query.dstGroup.stringValue())
      .hex("packet", query.message->data())
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
