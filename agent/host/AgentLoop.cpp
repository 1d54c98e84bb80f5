#include <Host/AgentLoop.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include <fmt/format.h>

#include <Link/LinkMonitor.h>
#include <Link/PacketPort.h>
#include <Local/AttrLogSocket.h>
#include <Mox/ActivityClock.h>
#include <Server/RequestServer.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include "InterfaceQuerier.h"
#include "WheelAlarm.h"

namespace Agent {

namespace {

// Null, with an event that says so, where the server cannot serve and is not required.
template <class Server, class Make>
std::unique_ptr<Server> serveOrReport(bool required, EventSink& sink, Make make) {
  try {
    return make();
  } catch (const std::runtime_error& error) {
    if (required) throw;
    Event event{.time = Mox::now(), .kind = Event::error};
    event.text = fmt::format("{}; this agent runs without it", error.what());
    sink.event(event);
    return nullptr;
  }
}

}  // namespace

class AgentLoop::Impl {
 public:
  Impl(const Setup& setup, EventSink& sink);

  void run();
  std::vector<InterfaceView> views() const;

 private:
  std::unique_ptr<AttrLogServer> makeAttrLogServer(const Setup& setup, EventSink& sink);
  std::unique_ptr<RequestServer> makeRequestServer(const Setup& setup, EventSink& sink);
  // What requests can read by path: what the attribute log serves, and the machines behind it.
  ObjectRoots roots() const;
  RequestServices::Queriers queriersByName() const;
  void publish(const InterfaceQuerier& querier);
  void handleLink(const std::string& name, const Link* link);
  void handleSignal(int number);
  void waitForSignal();
  // Fires the timers that are due, reports what they changed, and sets the alarm for the next one.
  void turn();
  // The same around a change by another process, which is reported at once.
  void turnAndFlush();

  boost::asio::io_context io_{1};
  boost::asio::signal_set signals_{io_};
  const Mox::Ptr<Obel::TimerWheel> wheel_;
  WheelAlarm alarm_{io_, [this] { turn(); }};
  const std::function<void()> onStateRequested_;
  const std::unique_ptr<AttrLogServer> attrLog_;  // null for none
  const InterfaceQuerier::Services services_;
  std::vector<std::unique_ptr<InterfaceQuerier>> queriers_;
  const std::unique_ptr<RequestServer> requests_;  // null for none
  LinkMonitor links_;
};

AgentLoop::Impl::Impl(const Setup& setup, EventSink& sink)
    : wheel_(Mox::makePtr<Obel::TimerWheel>(Mox::now())),
      onStateRequested_(setup.onStateRequested),
      attrLog_(makeAttrLogServer(setup, sink)),
      services_{.wheel = wheel_,
                .turn = [this] { turn(); },
                .openPort =
                    [this](const Link& link, FrameReceiver& receiver) {
                      return std::make_unique<PacketPort>(io_, link, receiver);
                    },
                .sink = sink,
                .reportQueries = setup.reportQueries,
                .attrLogSm = attrLog_ == nullptr ? nullptr : attrLog_->monitor()},
      requests_(makeRequestServer(setup, sink)),
      links_(io_, [this](const std::string& name, const Link* link) { handleLink(name, link); }) {
  for (const int number : {SIGINT, SIGTERM, SIGUSR1}) signals_.add(number);
  waitForSignal();
  for (const InterfaceSetup& interface : setup.interfaces) {
    queriers_.push_back(std::make_unique<InterfaceQuerier>(services_, interface));
    publish(*queriers_.back());
    queriers_.back()->linkIs(links_.links().find(interface.name));
  }
  turn();
}

std::unique_ptr<AttrLogServer> AgentLoop::Impl::makeAttrLogServer(const Setup& setup,
                                                                  EventSink& sink) {
  if (!setup.attrLog) return nullptr;
  return serveOrReport<AttrLogServer>(setup.attrLogRequired, sink, [&] {
    return std::make_unique<AttrLogServer>(io_, *setup.attrLog, wheel_, [this] { turnAndFlush(); });
  });
}

std::unique_ptr<RequestServer> AgentLoop::Impl::makeRequestServer(const Setup& setup,
                                                                  EventSink& sink) {
  if (attrLog_ == nullptr) return nullptr;
  const RequestServices services{.queriers = [this] { return queriersByName(); },
                                 .roots = [this] { return roots(); },
                                 .turn = [this] { turnAndFlush(); }};
  return serveOrReport<RequestServer>(setup.attrLogRequired, sink, [&] {
    return std::make_unique<RequestServer>(io_, requestSocketPath(setup.attrLog->path), wheel_,
                                           services);
  });
}

RequestServices::Queriers AgentLoop::Impl::queriersByName() const {
  RequestServices::Queriers all;
  for (const auto& querier : queriers_) all.emplace(querier->name(), querier->querier());
  return all;
}

ObjectRoots AgentLoop::Impl::roots() const {
  ObjectRoots all;
  for (const auto& [number, entry] : attrLog_->directory().entries()) {
    all.emplace_back(entry.path, entry.entity);
  }
  for (const auto& querier : queriers_) {
    if (querier->running()) all.emplace_back("querierSm/" + querier->name(), querier->querier());
  }
  all.emplace_back("attrLogSm", attrLog_->monitor());
  return all;
}

void AgentLoop::Impl::publish(const InterfaceQuerier& querier) {
  using Mox::NboAttrLog::Access;
  if (attrLog_ == nullptr) return;
  Mox::NboAttrLog::Directory& directory = attrLog_->directory();
  directory.entryIs("config/" + querier.name(), querier.config(), Access::configurable);
  directory.entryIs("status/" + querier.name(), querier.status(), Access::readOnly);
  directory.entryIs("interface/" + querier.name(), querier.state(), Access::readOnly);
}

// Each round handles one packet, timer or client; clients that follow the traces get theirs then.
void AgentLoop::Impl::run() {
  while (io_.run_one() != 0) {
    if (requests_) requests_->followUp();
  }
}

std::vector<InterfaceView> AgentLoop::Impl::views() const {
  std::vector<InterfaceView> all;
  for (const auto& querier : queriers_) all.push_back(querier->view());
  return all;
}

void AgentLoop::Impl::handleLink(const std::string& name, const Link* link) {
  const auto found =
      std::ranges::find_if(queriers_, [&](const auto& querier) { return querier->name() == name; });
  if (found == queriers_.end()) return;
  turn();
  (*found)->linkIs(link);
  turn();
}

void AgentLoop::Impl::waitForSignal() {
  signals_.async_wait([this](const boost::system::error_code& failed, int number) {
    if (!failed) handleSignal(number);
  });
}

void AgentLoop::Impl::handleSignal(int number) {
  turn();
  if (number != SIGUSR1) {
    io_.stop();
    return;
  }
  if (onStateRequested_) onStateRequested_();
  waitForSignal();
}

void AgentLoop::Impl::turn() {
  if (wheel_->turn(Mox::now()) != 0) {
    for (const auto& querier : queriers_) querier->flush();
  }
  alarm_.timeIs(wheel_->nextDue());
}

void AgentLoop::Impl::turnAndFlush() {
  turn();
  for (const auto& querier : queriers_) querier->flush();
}

AgentLoop::AgentLoop(const Setup& setup, EventSink& sink)
    : impl_(std::make_unique<Impl>(setup, sink)) {}

AgentLoop::~AgentLoop() = default;

void AgentLoop::run() { impl_->run(); }

std::vector<InterfaceView> AgentLoop::views() const { return impl_->views(); }

}  // namespace Agent
