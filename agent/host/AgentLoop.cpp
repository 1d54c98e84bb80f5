#include <Host/AgentLoop.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <stdexcept>

#include <fmt/format.h>

#include <Link/PacketPort.h>
#include <Local/AttrLogSocket.h>
#include <Mox/ActivityClock.h>

namespace Agent {

using Mox::Seconds;

namespace {

// Who did not ask for a server in particular can do without: it is told of, and null.
template <class Server, class Make>
std::unique_ptr<Server> serveOrTell(bool required, EventSink& sink, Make make) {
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

AgentLoop::AgentLoop(const Setup& setup, EventSink& sink)
    : wheel_(Mox::makePtr<Obel::TimerWheel>(Mox::now())),
      onStateWanted_(setup.onStateWanted),
      attrLog_(attrLogServed(setup, sink)),
      services_{.wheel = wheel_,
                .turn = [this] { turn(); },
                .openPort =
                    [this](const Link& link, FrameReceiver& receiver) {
                      return std::make_unique<PacketPort>(io_, link, receiver);
                    },
                .sink = sink,
                .tellQueries = setup.tellQueries,
                .attrLogSm = attrLog_ == nullptr ? nullptr : attrLog_->monitor()},
      requests_(requestsServed(setup, sink)),
      links_(io_, [this](const std::string& name, const Link* link) { handleLink(name, link); }) {
  for (const int number : {SIGINT, SIGTERM, SIGUSR1}) signals_.add(number);
  waitForSignal();
  for (const InterfaceQuerier::Setup& interface : setup.interfaces) {
    queriers_.push_back(std::make_unique<InterfaceQuerier>(services_, interface));
    publish(*queriers_.back());
    queriers_.back()->linkIs(links_.links().find(interface.name));
  }
  turn();
}

AgentLoop::~AgentLoop() = default;

std::unique_ptr<AttrLogServer> AgentLoop::attrLogServed(const Setup& setup, EventSink& sink) {
  if (!setup.attrLog) return nullptr;
  return serveOrTell<AttrLogServer>(setup.attrLogRequired, sink, [&] {
    return std::make_unique<AttrLogServer>(io_, *setup.attrLog, wheel_, [this] { turnAndTell(); });
  });
}

std::unique_ptr<RequestServer> AgentLoop::requestsServed(const Setup& setup, EventSink& sink) {
  if (attrLog_ == nullptr) return nullptr;
  const RequestServices services{.queriers =
                                     [this] {
                                       RequestServices::Queriers all;
                                       for (const auto& querier : queriers_) {
                                         all.emplace(querier->name(), querier->querier());
                                       }
                                       return all;
                                     },
                                 .roots = [this] { return roots(); },
                                 .turn = [this] { turnAndTell(); }};
  return serveOrTell<RequestServer>(setup.attrLogRequired, sink, [&] {
    return std::make_unique<RequestServer>(io_, requestSocketPath(setup.attrLog->path), wheel_,
                                           services);
  });
}

ObjectRoots AgentLoop::roots() const {
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

void AgentLoop::publish(const InterfaceQuerier& querier) {
  using Mox::NboAttrLog::Access;
  if (attrLog_ == nullptr) return;
  Mox::NboAttrLog::Directory& directory = attrLog_->directory();
  directory.entryIs("config/" + querier.name(), querier.config(), Access::configurable);
  directory.entryIs("status/" + querier.name(), querier.status(), Access::readOnly);
  directory.entryIs("interface/" + querier.name(), querier.state(), Access::readOnly);
}

// Each round is what came of one packet, timer or client.
void AgentLoop::run() {
  while (io_.run_one() != 0) {
    if (requests_) requests_->followUp();
  }
}

std::vector<InterfaceView> AgentLoop::views() const {
  std::vector<InterfaceView> all;
  for (const auto& querier : queriers_) all.push_back(querier->view());
  return all;
}

void AgentLoop::handleLink(const std::string& name, const Link* link) {
  const auto found =
      std::ranges::find_if(queriers_, [&](const auto& querier) { return querier->name() == name; });
  if (found == queriers_.end()) return;
  turn();
  (*found)->linkIs(link);
  turn();
}

void AgentLoop::waitForSignal() {
  signals_.async_wait([this](const boost::system::error_code& failed, int number) {
    if (!failed) handleSignal(number);
  });
}

void AgentLoop::handleSignal(int number) {
  turn();
  if (number != SIGUSR1) {
    io_.stop();
    return;
  }
  if (onStateWanted_) onStateWanted_();
  waitForSignal();
}

void AgentLoop::turn() {
  if (wheel_->turn(Mox::now()) != 0) {
    for (const auto& querier : queriers_) querier->flush();
  }
  sleepUntilDue();
}

void AgentLoop::turnAndTell() {
  turn();
  for (const auto& querier : queriers_) querier->flush();
}

void AgentLoop::sleepUntilDue() {
  const Seconds due = wheel_->nextDue();
  if (due == timerSet_) return;
  timerSet_ = due;
  if (due == Mox::never) {
    timer_.cancel();
    return;
  }
  // The loop's clock and the activity clock may begin at different times, but run alike.
  constexpr Seconds longest = 3600.0;
  const Seconds left = std::clamp(due - Mox::now(), 0.0, longest);
  timer_.expires_after(std::chrono::nanoseconds(std::llround(left * 1e9)));
  timer_.async_wait([this](const boost::system::error_code& failed) {
    if (failed) return;
    timerSet_ = Mox::never;
    turn();
  });
}

}  // namespace Agent
