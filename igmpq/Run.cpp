// `igmpq run [INTERFACE...]`: queriers on real interfaces, until a signal ends them.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/random.h>
#include <unistd.h>

#include <Config/ConfigPath.h>
#include <Config/Configuration.h>
#include <Events/EventBudget.h>
#include <Events/EventOutput.h>
#include <Events/LibraryMessages.h>
#include <Host/AgentLoop.h>
#include <Link/LinkMonitor.h>
#include <Link/Privileges.h>
#include <Local/AttrLogSocket.h>
#include <Mox/ActivityClock.h>
#include <Mox/HashMap.h>
#include <Options/AgentOptions.h>
#include <Options/Options.h>
#include <Report/StateReport.h>
#include <Settings/QuerierSettings.h>
#include <Text/TraceText.h>

#include "Interfaces.h"
#include "Rights.h"
#include "Verb.h"

namespace Igmpq {

using Agent::AgentLoop;
using Agent::AgentSettings;
using Agent::EventOutput;
using Agent::LinkTable;

namespace {

// A service manager waits for the end, and after it for the output.
constexpr Mox::Seconds finalStateDuration = 0.2;

const std::map<std::string, Agent::EventScope, std::less<>> scopes{
    {"all", Agent::EventScope::all},
    {"changes", Agent::EventScope::changes},
    {"none", Agent::EventScope::none}};

Mox::U64 randomNumber() {
  Mox::U64 number = 0;
  if (getrandom(&number, sizeof(number), 0) != sizeof(number)) {
    throw std::system_error(errno, std::generic_category(), "no random numbers");
  }
  return number;
}

// Neighbours must not be able to predict the times of queries, nor which addresses collide in
// tables.
void chanceIs(std::optional<long> seed) {
  if (!seed) Mox::hashMultiplierIs(randomNumber());
  srand48(seed ? *seed : static_cast<long>(randomNumber()));
}

Mox::Ptr<Ilvo::IntfBoundaryStatus> boundaryOf(const Agent::ResolvedSettings& settings) {
  if (settings.boundary.empty()) return nullptr;
  auto boundary = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  for (const auto& [prefix, place] : settings.boundary) boundary->boundaryIs(prefix, true);
  return boundary;
}

class RunVerb final : public Verb {
 public:
  explicit RunVerb(CLI::App& app)
      : RunVerb(app.add_subcommand("run", "Be the querier of network interfaces")) {}

  // Errors of the command line and missing rights are found before anything is opened.
  int run() override {
    const std::optional<Agent::Configuration> file = configuration();
    const Agent::Configuration* const given = file ? &*file : nullptr;
    const std::vector<std::string> names = interfaceNames(given);
    const AgentSettings agent = agent_.over(given == nullptr ? AgentSettings{} : given->agent());
    const std::optional<Agent::User> user = userOf(agent);
    const std::optional<Agent::AttrLogServer::Setup> attrLog = attrLogSetup(agent);
    const std::string missing = Agent::missingPrivilege();
    if (!missing.empty()) throw std::runtime_error(missing);
    Agent::raiseDescriptorLimit();
    chanceIs(seed_);
    std::signal(SIGPIPE, SIG_IGN);
    // Another user may be unable to open it again.
    EventOutput output(STDOUT_FILENO, json_ ? EventOutput::json : EventOutput::text);
    Agent::EventBudget events(output, agent.eventRate);
    const Agent::LibraryMessages messages(events);
    // Beside the socket, where operators look for this agent.
    const std::string traceFolder = std::filesystem::path(socketPath(agent)).parent_path();
    AgentLoop::Setup setup{.interfaces = {},
                           .reportQueries = agent.queries,
                           .eventScope = scopes.at(agent.events),
                           .onStateRequested = {},
                           .attrLog = attrLog,
                           .attrLogRequired = !agent.socket.empty(),
                           .ringBytes = {}};
    if (agent.ringKib) setup.ringBytes = *agent.ringKib * 1024;
    if (given != nullptr) {
      for (const auto& setting : given->process())
        setting.written.attr->set(*setup.process, setting.written.value);
    }
    for (const std::string& name : names) {
      setup.interfaces.push_back(setupOf(name, given, setup.process));
    }
    limitRights(user, socketPath(agent));
    Agent::fatalTraceFolderIs(traceFolder);
    std::optional<AgentLoop> loop;
    std::optional<Agent::StateParts> state;
    const auto begin = [&] {
      state.emplace(loop->views(), Mox::now(), json_ ? Agent::Format::json : Agent::Format::text);
      if (!json_) output.lines("\n");
    };
    setup.onStateRequested = [&] {
      if (!state) begin();
      return writePart(output, state);
    };
    loop.emplace(setup, events);
    loop->run();
    events.finish();
    begin();
    const Mox::Seconds end = Mox::now() + finalStateDuration;
    while (writePart(output, state)) {
      output.flush();
      if (Mox::now() < end) continue;
      output.event(notice("there are more groups than can be shown before the end"));
      break;
    }
    return exitOk;
  }

 private:
  explicit RunVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  sudo igmpq run eth0 eth1            on these interfaces\n"
        "  sudo igmpq run --all --json         on all that are up now, with JSON Lines on standard "
        "output\n"
        "  sudo igmpq run --config new.toml    as that file says; `igmpq check` looks at it first\n"
        "It runs until SIGINT or SIGTERM and prints its state then, and at each SIGUSR1.\n"
        "Exit status: 0 ended by a signal, 1 failure (no permission, no socket), 2 bad use.\n");
    options->add_option("INTERFACE", interfaces_, "Ethernet interfaces")
        ->type_name("")
        ->expected(0, -1);
    options
        ->add_option("--config", config_,
                     fmt::format("configuration file, and the files conf.d/*.toml beside it; "
                                 "without names or --all {} if it is there",
                                 Agent::usualConfigPath))
        ->type_name("FILE");
    options->add_flag("--all", all_, "all Ethernet interfaces that are up now and have an address");
    options->add_flag("--json", json_, "write JSON Lines");
    addNumber(*options, "--seed", "N", {.least = 0, .most = 4294967295, .whole = true},
              "of random delays (random)",
              [this](double seed) { seed_ = static_cast<long>(seed); });
    agent_.addTo(*options);
    addSettings(*options, settings_);
  }

  // Without a path given it is no error when another agent serves at the usual one.
  static std::optional<Agent::AttrLogServer::Setup> attrLogSetup(const AgentSettings& agent) {
    const Agent::RightsOf rightsOf = Agent::peerRights(accessOf(agent));
    const std::string path = socketPath(agent);
    if (path.empty()) return std::nullopt;
    return Agent::AttrLogServer::Setup{.path = path,
                                       .stallTimeout = agent.stallTimeout,
                                       .maxReaders = agent.maxReaders,
                                       .rightsOf = rightsOf};
  }

  static std::string socketPath(const AgentSettings& agent) {
    return agent.socket.empty() ? Agent::attrLogSocketPath() : agent.socket;
  }

  // Null where the command line says everything.
  std::optional<Agent::Configuration> configuration() const {
    if (!config_.empty()) return Agent::Configuration::read(config_);
    const bool isUsual = interfaces_.empty() && !all_;
    std::error_code none;
    if (!isUsual || !std::filesystem::exists(Agent::usualConfigPath, none)) return std::nullopt;
    return Agent::Configuration::read(Agent::usualConfigPath);
  }

  // As they were named, each once.
  std::vector<std::string> interfaceNames(const Agent::Configuration* configuration) const {
    const LinkTable links = Agent::currentLinks();
    if (all_ && !interfaces_.empty()) throw BadUse("name interfaces or give --all, not both");
    if (all_) return usableNames(links);
    if (interfaces_.empty()) {
      if (configuration != nullptr) return namesIn(*configuration, links);
      throw BadUse(fmt::format("name interfaces, or give --all for these: {}",
                               fmt::join(usableNames(links), ", ")));
    }
    std::vector<std::string> names;
    for (const std::string& name : interfaces_) {
      checkFit(links, name);
      if (std::ranges::find(names, name) == names.end()) names.push_back(name);
    }
    return names;
  }

  // One that is not there yet is waited for.
  std::vector<std::string> namesIn(const Agent::Configuration& configuration,
                                   const LinkTable& links) const {
    if (!configuration.namesInterfaces()) {
      const std::vector<std::string> fit = fitNames(links);
      throw BadUse(
          fmt::format("the configuration names no interface; add for instance\n"
                      "[[interface]]\nname = \"{}\"",
                      fit.empty() ? "eth0" : fit.front()));
    }
    return configuration.interfacesAmong(fitNames(links));
  }

  // The command line wins over the file.
  Agent::InterfaceSetup setupOf(const std::string& name, const Agent::Configuration* configuration,
                                const Mox::Ptr<Agent::IntakeProcessConfig>& process) const {
    const Agent::SettingEntities entities{.config = Gmp::Igmp::querierConfigFactory(name),
                                          .intake = Mox::makePtr<Agent::IntakeConfig>(name),
                                          .process = process};
    Mox::Ptr<Ilvo::IntfBoundaryStatus> boundary = settings_.boundary();
    if (configuration != nullptr) {
      const Agent::ResolvedSettings resolved = configuration->settingsOf(name);
      for (const Agent::PlacedSetting& setting : resolved.settings) entities.set(setting.written);
      if (!boundary) boundary = boundaryOf(resolved);
    }
    settings_.applyGiven(entities);
    return {name, entities.config, entities.intake, boundary};
  }

  // False after the last part.
  bool writePart(EventOutput& output, std::optional<Agent::StateParts>& state) const {
    const std::string part = state->next();
    if (!part.empty()) {
      output.lines(part);
      return true;
    }
    if (!json_) output.lines("\n");
    state.reset();
    return false;
  }

  static Agent::Event notice(const char* text) {
    Agent::Event event{.time = Mox::now(), .kind = Agent::Event::notice};
    event.text = text;
    return event;
  }

  std::vector<std::string> interfaces_;
  std::string config_;
  bool all_ = false;
  bool json_ = false;
  std::optional<long> seed_;
  AgentOptions agent_;
  Agent::QuerierSettings settings_;
};

}  // namespace

std::unique_ptr<Verb> runVerb(CLI::App& app) { return std::make_unique<RunVerb>(app); }

}  // namespace Igmpq
