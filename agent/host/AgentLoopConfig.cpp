// The configuration that is read again while the agent runs.
#include <algorithm>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

#include <Local/AttrLogSocket.h>
#include <Mox/ActivityClock.h>
#include <boost/asio/post.hpp>

#include "AgentLoopImpl.h"

namespace Agent {

namespace {

constexpr const char* noFileText =
    "nothing is read again: no configuration file is in use; `igmpq run --config FILE` uses one";

std::vector<ConfigChange> changesOf(const ConfigError& error) {
  std::vector<ConfigChange> changes;
  for (const ConfigFault& fault : error.faults()) {
    changes.push_back(
        {.kind = ConfigChange::fault, .origin = placeText(fault.place), .what = fault.what});
  }
  return changes;
}

void keepPublished(SettingEntities& before, SettingEntities& after) {
  const auto keep = [](const auto& was, auto& is) {
    if (!was || !is) return;
    copySettings(*is, *was);
    is = was;
  };
  keep(before.config, after.config);
  keep(before.intake, after.intake);
  keep(before.process, after.process);
}

// Readers keep the entities of what the configuration says, and see which of it is new.
void keepPublished(ConfiguredAgent& before, ConfiguredAgent& after) {
  keepPublished(before.values, after.values);
  for (auto& [name, interface] : after.interfaces) {
    const auto was = before.interfaces.find(name);
    if (was != before.interfaces.end()) keepPublished(was->second.values, interface.values);
  }
}

}  // namespace

// Both are open before the agent leaves the old path.
struct AgentLoop::Impl::NewSockets {
  std::unique_ptr<LocalListener> attrLog;
  std::unique_ptr<LocalListener> requests;
};

InterfaceSetup setupOf(const ConfiguredInterface& configured) {
  InterfaceSetup setup{.name = configured.name,
                       .config = Gmp::Igmp::querierConfigFactory(configured.name),
                       .intake = Mox::makePtr<IntakeConfig>(configured.name),
                       .boundary = boundaryOf(configured)};
  copySettings(*configured.values.config, *setup.config);
  copySettings(*configured.values.intake, *setup.intake);
  return setup;
}

std::vector<ConfigChange> AgentLoop::Impl::reload() {
  if (!configure_) throw std::runtime_error(noFileText);
  std::vector<ConfigChange> changes;
  serviceManager_.stateIs(ServiceManager::reloading);
  try {
    changes = takeOverConfig();
  } catch (const ConfigError& error) {
    changes = changesOf(error);
  } catch (const std::exception& error) {
    changes = {{.kind = ConfigChange::fault, .what = error.what()}};
  }
  serviceManager_.stateIs(isStarted_ ? ServiceManager::ready : ServiceManager::starting);
  report(changes);
  return changes;
}

void AgentLoop::Impl::reloadAtSignal() {
  if (configure_) {
    reload();
    return;
  }
  Event event{.time = Mox::now(), .kind = Event::notice};
  event.text = noFileText;
  services_.sink.event(event);
}

void AgentLoop::Impl::report(const std::vector<ConfigChange>& changes) {
  const auto event = [&](Event::Kind kind, std::string text) {
    Event made{.time = Mox::now(), .kind = kind};
    made.text = std::move(text);
    services_.sink.event(made);
  };
  if (changes.empty()) event(Event::notice, "the configuration was read again: nothing changed");
  for (const ConfigChange& change : changes) {
    const bool isFault = change.kind == ConfigChange::fault;
    event(isFault ? Event::error : Event::notice,
          (isFault ? "the configuration is not taken over: " : "") + changeText(change));
  }
}

// All that can fail comes first.
std::vector<ConfigChange> AgentLoop::Impl::takeOverConfig() {
  links_.readNow();
  if (!links_.isWhole()) {
    throw std::runtime_error("the interfaces change too fast to be listed; try again");
  }
  Config next = configure_(links_.links());
  ConfigPlan plan = configPlan(
      configured_, next.settings,
      {.entitiesOf = [this](const std::string& interface) { return entitiesOf(interface); },
       .canServeElsewhere = attrLog_ && requests_ && !next.socketPath.empty()});
  next.settings.agent = plan.after.agent;
  std::optional<NewSockets> sockets = newSocketsAt(next.socketPath);
  Queriers added = newQueriers(plan);

  serveAt(next, std::move(sockets));
  removeQueriers(plan);
  applySettings(plan);
  addQueriers(plan, std::move(added));
  keepPublished(configured_, plan.after);
  configured_ = std::move(plan.after);
  next.socketPath = servedPath_;
  if (onConfig_) onConfig_(next);
  reportChanges();
  return std::move(plan.changes);
}

std::optional<AgentLoop::Impl::NewSockets> AgentLoop::Impl::newSocketsAt(const std::string& path) {
  if (!attrLog_ || !requests_ || path.empty() || path == servedPath_) return std::nullopt;
  return NewSockets{.attrLog = attrLog_->socketAt(path),
                    .requests = requests_->socketAt(requestSocketPath(path))};
}

// The kernel takes its time to open a port: packets and timers of the other interfaces do not wait
// for all of them.
AgentLoop::Impl::Queriers AgentLoop::Impl::newQueriers(const ConfigPlan& plan) {
  Queriers added;
  const size_t countBefore = std::exchange(interfaceCount_, plan.after.names.size());
  for (const std::string& name : plan.added) {
    added.push_back(
        std::make_unique<InterfaceQuerier>(services_, setupOf(plan.after.interfaces.at(name))));
    try {
      added.back()->prepare(links_.links().find(name));
      handleBatchIfDue();
    } catch (const std::exception& error) {
      interfaceCount_ = countBefore;
      throw std::runtime_error(fmt::format("{} cannot be added: {}", name, error.what()));
    }
  }
  return added;
}

void AgentLoop::Impl::serveAt(const Config& next, std::optional<NewSockets> sockets) {
  const AgentSettings& agent = next.settings.agent;
  services_.reportQueries = agent.queries;
  if (attrLog_) attrLog_->limitsAre(next.rightsOf, agent.stallTimeout, agent.maxReaders);
  if (requests_) requests_->rightsAre(next.rightsOf);
  if (!sockets) return;
  servedPath_ = next.socketPath;
  attrLog_->socketIs(std::move(sockets->attrLog));
  requests_->socketIs(std::move(sockets->requests));
}

// Groups end in steps, as there may be many.
void AgentLoop::Impl::removeQueriers(const ConfigPlan& plan) {
  for (const std::string& name : plan.removed) {
    const auto at = std::ranges::find_if(
        queriers_, [&](const auto& querier) { return querier->name() == name; });
    unpublish(name);
    queriersByName_.erase(name);
    (*at)->end();
    leaving_.push_back(std::move(*at));
    queriers_.erase(at);
  }
}

// One in a round of the loop: packets do not wait for all of them.
void AgentLoop::Impl::deleteEmptied() {
  const auto first =
      std::ranges::find_if(leaving_, [](const auto& querier) { return querier->hasEnded(); });
  if (first == leaving_.end()) return;
  const std::string name = (*first)->name();
  leaving_.erase(first);
  const auto successor = queriersByName_.find(name);
  if (successor != queriersByName_.end() && !isLeaving(name)) {
    successor->second->linkIs(links_.links().find(name));
    reportChanges();
  }
  if (!leaving_.empty()) boost::asio::post(io_, [] {});  // the loop comes back at once
}

bool AgentLoop::Impl::isLeaving(const std::string& interface) const {
  return std::ranges::any_of(leaving_, [&](const auto& each) { return each->name() == interface; });
}

void AgentLoop::Impl::applySettings(const ConfigPlan& plan) {
  const auto apply = [](const ConfigPlan::Values& values, Mox::EntityBase& to) {
    for (const auto& [attr, value] : values) attr->set(to, value);
  };
  apply(plan.process, *process_.config);
  for (const ConfigPlan::Interface& change : plan.changed) {
    InterfaceQuerier& querier = *queriersByName_.at(change.name);
    apply(change.querier, *querier.config());
    apply(change.intake, *querier.intakeConfig());
    if (change.isBoundaryChanged) {
      querier.boundaryIs(boundaryOf(plan.after.interfaces.at(change.name)));
    }
  }
}

void AgentLoop::Impl::addQueriers(const ConfigPlan& plan, Queriers added) {
  for (std::unique_ptr<InterfaceQuerier>& querier : added) {
    const std::string& name = querier->name();
    queriersByName_.emplace(name, querier.get());
    publish(*querier, plan.after.interfaces.at(name).values);
    if (!isLeaving(name)) querier->linkIs(links_.links().find(name));
  }
  std::map<std::string, std::unique_ptr<InterfaceQuerier>, std::less<>> all;
  for (auto& querier : queriers_) all.emplace(querier->name(), std::move(querier));
  for (auto& querier : added) all.emplace(querier->name(), std::move(querier));
  queriers_.clear();
  for (const std::string& name : plan.after.names) queriers_.push_back(std::move(all.at(name)));
}

SettingEntities AgentLoop::Impl::entitiesOf(const std::string& interface) const {
  const auto found = queriersByName_.find(interface);
  if (found == queriersByName_.end()) {
    return {.config = {}, .intake = {}, .process = process_.config};
  }
  return {.config = found->second->config(),
          .intake = found->second->intakeConfig(),
          .process = process_.config};
}

std::optional<std::vector<ShownSetting>> AgentLoop::Impl::shownSettings(
    const std::string& interface) const {
  if (interface.empty()) return Agent::shownSettings(configured_, entitiesOf(interface));
  const auto found = configured_.interfaces.find(interface);
  if (found == configured_.interfaces.end()) return std::nullopt;
  return Agent::shownSettings(found->second, entitiesOf(interface));
}

}  // namespace Agent
