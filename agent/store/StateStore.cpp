#include <Store/StateStore.h>

#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <Local/AttrLogSocket.h>
#include <Local/LocalSocket.h>
#include <Local/MachineIdentity.h>
#include <Mox/ActivityClock.h>
#include <NboAttrLog/Frame.h>
#include <Text/Counted.h>
#include <Text/WallClock.h>

namespace Agent {

using Mox::NboAttrLog::Access;

namespace {

// Until an output that takes nothing is tried again.
constexpr Mox::Seconds outputRetry = 0.1;

}  // namespace

// Its own state is the first entry, since a reader decides by it what the others are worth.
StateStore::StateStore(EventLoop& loop, const Setup& setup, EventSink& sink)
    : loop_(loop),
      sink_(sink),
      server_(loop.io(), {.path = setup.path, .name = "igmpq store"}, loop.wheel(),
              [this] { countGroups(); }),
      requests_(loop.io(), {.path = requestSocketPath(setup.path)}, loop.wheel(), services()),
      copy_(loop.io(), setup.agentPath,
            {.onCurrent = [this] { handleCurrent(); },
             .onEntries = [this] { handleEntries(); },
             .onEnded = [this](AttrLogCopy::End end,
                               const std::string& why) { handleEnded(end, why); }}),
      serviceManager_(loop.wheel(), setup.service, [this] { return serviceStatus(); }),
      retryTimer_(loop.wheel(), *this),
      outputTimer_(loop.wheel(), *this) {
  state_->formatVersionIs(Mox::NboAttrLog::protocolVersion);
  state_->bootIdIs(bootId());
  state_->machineIdIs(machineId());
  server_.directory().entryIs(AttrLogCopy::storePath, state_, Access::readOnly);
  loop_.onRoundIs([this] { handleRound(); });
}

StateStore::~StateStore() { loop_.onRoundIs({}); }

void StateStore::start() {
  serviceManager_.stateIs(ServiceManager::ready);
  handleRetryTimer();
}

size_t StateStore::forget(const std::string& interface) {
  if (isReceiving_) {
    throw std::runtime_error(
        "the agent runs, and what is forgotten now it would not send again: end the agent first");
  }
  std::vector<std::string> names;
  size_t groups = 0;
  for (const auto& [name, kept] : copy_.interfaces()) {
    if (!interface.empty() && name != interface) continue;
    names.push_back(name);
    groups += kept.status->group().size();
  }
  for (const std::string& name : names) copy_.forget(name);
  serveEntries();
  countGroups();
  return groups;
}

// A store has no queriers: only the names of its interfaces are known, for requests that name one.
RequestServices::Queriers StateStore::interfaceNames() const {
  RequestServices::Queriers names;
  for (const auto& [name, kept] : copy_.interfaces()) names.emplace(name, nullptr);
  return names;
}

RequestServices StateStore::services() {
  return {.queriers = [this] { return interfaceNames(); },
          .roots = [this] { return roots(); },
          .turn = [this] { countGroups(); },
          .clearGroups =
              [this](const std::string& interface, std::optional<Ilvo::IpAddr> group) {
                if (group) throw std::runtime_error("a store forgets interfaces, not groups");
                return forget(interface);
              },
          .config = {.reload = []() -> std::vector<ConfigChange> {
                       throw std::runtime_error("a store has no configuration");
                     },
                     .interfaces = [] { return std::vector<std::string>(); },
                     .settings = [](const std::string&) { return std::nullopt; }}};
}

ObjectRoots StateStore::roots() const {
  ObjectRoots all;
  for (const auto& [number, entry] : server_.directory().entries()) {
    all.emplace_back(entry.path, entry.entity);
  }
  return all;
}

void StateStore::handleRound() {
  requests_.followUp();
  outputTimer_.timeMinIs(sink_.flush() ? Mox::never : Mox::now() + outputRetry);
}

void StateStore::serveEntries() {
  auto gone = std::exchange(served_, {});
  copy_.forEachEntry([&](const std::string& path, const auto& entity) {
    const auto before = gone.extract(path);
    served_.emplace(path, entity.get());
    if (!before.empty() && before.mapped() == entity.get()) return;
    server_.directory().entryIs(path, entity, Access::readOnly);
  });
  for (const auto& [path, entity] : gone) server_.directory().entryDel(path);
}

void StateStore::countGroups() {
  size_t groups = 0;
  for (const auto& [name, kept] : copy_.interfaces()) groups += kept.status->group().size();
  state_->groupsIs(groups);
}

// The hello alone changes nothing: with the first entry the copy begins to be that of this agent.
void StateStore::handleEntries() {
  if (!std::exchange(isReceiving_, true)) {
    if (state_->lostTime() != 0.0) report(Event::agentBack);
    state_->lostTimeIs(0.0);
    state_->lostWallClockIs(0.0);
  }
  serveEntries();
}

void StateStore::handleCurrent() {
  state_->completeIs(true);
  problem_.clear();
}

// All bytes that the agent has sent are in the copy by now.
void StateStore::handleEnded(AttrLogCopy::End end, const std::string& why) {
  const bool isUnderstood = end == AttrLogCopy::End::lost;
  if (!isUnderstood) reportProblem(why);
  if (std::exchange(isReceiving_, false)) agentLost(why);
  retryTimer_.timeMinIs(Mox::now() + (isUnderstood ? retryInterval : refusedInterval));
}

void StateStore::agentLost(const std::string& why) {
  state_->lostTimeIs(Mox::now());
  state_->lostWallClockIs(wallTime(Mox::now()));
  countGroups();
  report(Event::agentLost, fmt::format("{}; kept: {}", why, serviceStatus()));
}

void StateStore::handleRetryTimer() {
  try {
    copy_.connect();
  } catch (const ConnectError&) {
    retryTimer_.timeMinIs(Mox::now() + retryInterval);
  }
}

void StateStore::reportProblem(const std::string& text) {
  if (std::exchange(problem_, text) != text) report(Event::error, text);
}

void StateStore::report(Event::Kind kind, const std::string& text) {
  Event event{.time = Mox::now(), .kind = kind};
  event.text = text;
  sink_.event(event);
}

std::string StateStore::serviceStatus() const {
  return fmt::format("{}, {}", counted(copy_.interfaces().size(), "interface"),
                     counted(state_->groups(), "group"));
}

}  // namespace Agent
