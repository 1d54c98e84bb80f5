#include <Host/AgentLoop.h>

#include <algorithm>
#include <map>
#include <stdexcept>

#include <fmt/format.h>
#include <malloc.h>

#include <Local/AttrLogSocket.h>
#include <Mox/ActivityClock.h>
#include <MoxBase/Pool.h>
#include <boost/asio/post.hpp>

#include "AgentLoopImpl.h"
#include "ServiceStatus.h"

namespace Agent {

namespace {

// How long handlers may keep the loop from the rings. One may begin just before that and take as
// long again.
constexpr Mox::Seconds handlersQuantum = 0.001;
// Bytes of objects: a smaller process is not worth the time.
constexpr size_t leastTrimmed = size_t{16} << 20;
// Until an output that takes nothing is tried again.
constexpr Mox::Seconds outputRetry = 0.01;
const std::map<std::string, EventScope, std::less<>> scopes{
    {"all", EventScope::all}, {"changes", EventScope::changes}, {"none", EventScope::none}};

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

AgentLoop::Impl::Impl(const Setup& setup, EventSink& sink)
    : wheel_(Mox::makePtr<Obel::TimerWheel>(Mox::now())),
      configured_(setup.config.settings),
      servedPath_(setup.config.socketPath),
      configure_(setup.configure),
      onConfig_(setup.onConfig),
      onStateRequested_(setup.onStateRequested),
      interfaceCount_(configured_.names.size()),
      attrLog_(makeAttrLogServer(setup, sink)),
      services_{.wheel = wheel_,
                .openPort = portOpener(setup),
                .sink = sink,
                .process = process_,
                .batch = batch_,
                .pending = &pending_,
                .onQuery = [this](Mox::Seconds delay) { watch_.querySent(delay); },
                .reportQueries = configured_.agent.queries,
                .eventScope = scopes.at(configured_.agent.events),
                .attrLogSm = attrLog_ == nullptr ? nullptr : attrLog_->monitor()},
      requests_(makeRequestServer(setup, sink)),
      links_(io_, wheel_,
             [this](const std::string& name, const Link* link) { handleLink(name, link); }),
      serviceManager_(wheel_, setup.service, [this] { return serviceStatus(); }) {
  waitForEnd();
  waitForRequestSignal();
  waitForPackets();
  copySettings(*configured_.values.process, *process_.config);
  const KeptState kept = readStore();
  takeOverProcess(kept);
  for (const std::string& name : configured_.names) {
    InterfaceSetup made = setupOf(configured_.interfaces.at(name));
    takeOver(kept, made);
    queriers_.push_back(std::make_unique<InterfaceQuerier>(services_, made));
    InterfaceQuerier& querier = *queriers_.back();
    queriersByName_.emplace(name, &querier);
    if (const Link* link = links_.links().find(name)) querier.publishLink(*link);
    publish(querier, configured_.interfaces.at(name).values);
  }
  if (links_.isWhole()) starting_.assign(configured_.names.begin(), configured_.names.end());
  publishProcess();
}

AgentLoop::Impl::~Impl() {
  if (packets_.is_open()) packets_.release();
}

// Rings that are opened later share what is for as many as there are then.
PortOpener AgentLoop::Impl::portOpener(const Setup& setup) {
  std::optional<size_t> bytes;
  if (const auto kib = setup.config.settings.agent.ringKib) bytes = *kib * 1024;
  return [this, bytes](const Link& link, FrameReceiver& receiver) {
    return std::make_unique<RingPort>(rings_, querySocket_, link, receiver,
                                      ringSizeFor(interfaceCount_, bytes));
  };
}

std::unique_ptr<AttrLogServer> AgentLoop::Impl::makeAttrLogServer(const Setup& setup,
                                                                  EventSink& sink) {
  if (servedPath_.empty()) return nullptr;
  return serveOrReport<AttrLogServer>(!configured_.agent.socket.empty(), sink, [&] {
    return std::make_unique<AttrLogServer>(
        io_,
        AttrLogServer::Setup{.path = servedPath_,
                             .stallTimeout = configured_.agent.stallTimeout,
                             .maxReaders = configured_.agent.maxReaders,
                             .rightsOf = setup.config.rightsOf},
        wheel_, [this] { handleBatch(); });
  });
}

std::unique_ptr<RequestServer> AgentLoop::Impl::makeRequestServer(const Setup& setup,
                                                                  EventSink& sink) {
  if (attrLog_ == nullptr) return nullptr;
  return serveOrReport<RequestServer>(!configured_.agent.socket.empty(), sink, [&] {
    return std::make_unique<RequestServer>(
        io_,
        RequestServer::Setup{.path = requestSocketPath(servedPath_),
                             .rightsOf = setup.config.rightsOf},
        wheel_, services());
  });
}

RequestServices AgentLoop::Impl::services() {
  return {
      .queriers = [this] { return queriersByName(); },
      .roots =
          [this] {
            watch_.publish();
            return roots();
          },
      .turn = [this] { handleBatch(); },
      .clearGroups =
          [this](const std::string& interface, std::optional<Ilvo::IpAddr> group) {
            return clearGroups(interface, group);
          },
      .config = {.reload = [this] { return reload(); },
                 .interfaces = [this] { return configured_.names; },
                 .settings =
                     [this](const std::string& interface) { return shownSettings(interface); }}};
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

void AgentLoop::Impl::publishProcess() {
  using Mox::NboAttrLog::Access;
  if (attrLog_ == nullptr) return;
  Mox::NboAttrLog::Directory& directory = attrLog_->directory();
  directory.entryIs("intakeProcessConfig", process_.config, Access::configurable);
  directory.entryIs("intakeProcessStatus", process_.status, Access::readOnly);
  directory.entryIs("configuredIntakeProcessConfig", configured_.values.process, Access::readOnly);
  directory.entryIs("loop", watch_.state(), Access::readOnly);
}

size_t AgentLoop::Impl::clearGroups(const std::string& interface,
                                    std::optional<Ilvo::IpAddr> group) {
  size_t groups = 0;
  for (const auto& querier : queriers_) {
    if (interface.empty() || querier->name() == interface) groups += querier->clearGroups(group);
  }
  return groups;
}

void AgentLoop::Impl::publish(const InterfaceQuerier& querier, const SettingEntities& configured) {
  using Mox::NboAttrLog::Access;
  if (attrLog_ == nullptr) return;
  Mox::NboAttrLog::Directory& directory = attrLog_->directory();
  directory.entryIs("config/" + querier.name(), querier.config(), Access::configurable);
  directory.entryIs("status/" + querier.name(), querier.status(), Access::readOnly);
  directory.entryIs("interface/" + querier.name(), querier.state(), Access::readOnly);
  directory.entryIs("intakeConfig/" + querier.name(), querier.intakeConfig(), Access::configurable);
  directory.entryIs("intakeStatus/" + querier.name(), querier.intakeStatus(), Access::readOnly);
  directory.entryIs("configuredConfig/" + querier.name(), configured.config, Access::readOnly);
  directory.entryIs("configuredIntakeConfig/" + querier.name(), configured.intake,
                    Access::readOnly);
}

void AgentLoop::Impl::unpublish(const std::string& interface) {
  if (attrLog_ == nullptr) return;
  for (const char* folder : {"config/", "status/", "interface/", "intakeConfig/", "intakeStatus/",
                             "configuredConfig/", "configuredIntakeConfig/"}) {
    attrLog_->directory().entryDel(folder + interface);
  }
}

// Each round handles one batch, one client or one change of interfaces; clients that follow the
// traces get theirs then. Packets do not wait for more than one client: many that want something at
// once would keep the loop from the rings until these overflow.
Mox::Seconds AgentLoop::Impl::run() {
  do {
    startNext();
    if (requests_) requests_->followUp();
    handleBatchIfDue();
    deleteEmptied();
    flushOutput();
    reportState();
  } while (handleNext());
  closePorts();
  requests_.reset();
  attrLog_.reset();
  return endSignalled_;
}

void AgentLoop::Impl::handleBatchIfDue() {
  if (Mox::now() > lastBatchEnd_ + handlersQuantum) handleBatch();
}

// Waits for something to be handled. False after a signal to end.
bool AgentLoop::Impl::handleNext() {
  if (io_.poll_one() == 0 && !io_.stopped()) {
    alarm_.timeIs(wheel_->nextWake());
    watch_.sleepBegins();
    io_.run_one();
  }
  return !io_.stopped();
}

// One in a round of the loop: the kernel takes its time to open a port, and neither a signal nor
// packets on those that are open wait for all.
void AgentLoop::Impl::startNext() {
  if (isStarted_) return;
  if (starting_.empty()) {
    isStarted_ = true;
    serviceManager_.stateIs(ServiceManager::ready);
    return;
  }
  const std::string name = std::move(starting_.front());
  starting_.pop_front();
  boost::asio::post(io_, [] {});  // the loop comes back at once
  const auto found = queriersByName_.find(name);
  if (found == queriersByName_.end()) return;  // the configuration has changed since
  found->second->linkIs(links_.links().find(name));
  watch_.gapDel();
  reportChanges();
}

// All at once, which takes the kernel hardly longer than one.
void AgentLoop::Impl::closePorts() {
  for (const auto& querier : queriers_) querier->closePort();
  for (const auto& querier : leaving_) querier->closePort();
}

std::vector<InterfaceView> AgentLoop::Impl::views() const {
  std::vector<InterfaceView> all;
  for (const auto& querier : queriers_) all.push_back(querier->view());
  return all;
}

std::string AgentLoop::Impl::serviceStatus() const {
  ServiceCounts counts{.interfaces = queriers_.size()};
  for (const auto& querier : queriers_) {
    const Gmp::Igmp::QuerierStatus& status = *querier->status();
    const bool isElected = status.state() == Gmp::Igmp::QuerierStatus::querierStateQuerier;
    if (querier->running() && isElected) ++counts.elected;
    counts.groups += status.group().size();
  }
  return serviceStatusText(counts);
}

void AgentLoop::Impl::handleLink(const std::string& name, const Link* link) {
  const auto found = queriersByName_.find(name);
  if (found == queriersByName_.end() || isLeaving(name)) return;
  if (!inBatch_) handleBatch();  // a timer may have found the change
  found->second->linkIs(link);
  reportChanges();
}

void AgentLoop::Impl::waitForEnd() {
  ends_.async_wait([this](const boost::system::error_code& failed, int) {
    if (failed) return;
    endSignalled_ = Mox::now();
    handleBatch();
    serviceManager_.stateIs(ServiceManager::stopping);
    io_.stop();
  });
}

void AgentLoop::Impl::waitForRequestSignal() {
  requestSignals_.async_wait([this](const boost::system::error_code& failed, int number) {
    if (failed) return;
    handleBatch();
    if (number == SIGHUP) {
      reloadAtSignal();
    } else if (onStateRequested_) {
      stateRequested_ = true;
    }
    waitForRequestSignal();
  });
}

void AgentLoop::Impl::trimMemory() {
  const size_t cells = Mox::poolUse().cells;
  mostCells_ = std::max(mostCells_, cells);
  if (mostCells_ < leastTrimmed || cells > mostCells_ / 4) return;
  malloc_trim(0);
  mostCells_ = cells;
}

void AgentLoop::Impl::reportChanges() {
  pending_.flush();
  trimMemory();
}

// A part at a time, when the output has taken the one before. The events that come after it wait
// for one part at most.
void AgentLoop::Impl::reportState() {
  if (!stateRequested_ || !services_.sink.isEmpty()) return;
  stateRequested_ = onStateRequested_();
  flushOutput();
  if (stateRequested_) boost::asio::post(io_, [] {});  // the loop comes back at once
}

void AgentLoop::Impl::flushOutput() {
  outputTimer_.timeMinIs(services_.sink.flush() ? Mox::never : Mox::now() + outputRetry);
}

AgentLoop::AgentLoop(const Setup& setup, EventSink& sink)
    : impl_(std::make_unique<Impl>(setup, sink)) {}

AgentLoop::~AgentLoop() = default;

Mox::Seconds AgentLoop::run() { return impl_->run(); }

std::vector<InterfaceView> AgentLoop::views() const { return impl_->views(); }

}  // namespace Agent
