// `igmpq run [INTERFACE...]`: queriers on real interfaces, until a signal ends them.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <Config/ConfigPath.h>
#include <Config/Configuration.h>
#include <Events/EventBudget.h>
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
#include "RandomNumber.h"
#include "Rights.h"
#include "RunOutput.h"
#include "Verb.h"

namespace Igmpq {

using Agent::AgentLoop;
using Agent::AgentSettings;
using Agent::LinkTable;

namespace {

// A service manager waits for the end: from the signal on, for the state, the output and the ports
// together. The kernel has the rest of the second.
constexpr Mox::Seconds endDuration = 0.6;

// Neighbours must not be able to predict the times of queries, nor which addresses collide in
// tables.
void chanceIs(std::optional<long> seed) {
  if (!seed) Mox::hashMultiplierIs(randomNumber());
  srand48(seed ? *seed : static_cast<long>(randomNumber()));
}

class RunVerb final : public Verb {
 public:
  explicit RunVerb(CLI::App& app)
      : RunVerb(app.add_subcommand("run", "Be the querier of network interfaces")) {}

  // Errors of the command line and missing rights are found before anything is opened.
  int run() override {
    readSources();
    AgentLoop::Setup setup{.config = configOf(startingInterfaces()),
                           .service = Agent::ServiceManager::fromEnvironment()};
    if (!file_.empty()) {
      setup.configure = [this](const LinkTable& links) { return configOf(fitNames(links)); };
    }
    const AgentSettings& agent = setup.config.settings.agent;
    const std::optional<Agent::User> user = userOf(agent);
    const std::string missing = Agent::missingPrivilege();
    if (!missing.empty()) throw std::runtime_error(missing);
    Agent::raiseDescriptorLimit();
    chanceIs(seed_);
    std::signal(SIGPIPE, SIG_IGN);
    // Another user may be unable to open it again.
    RunOutput output(json_);
    Agent::EventBudget events(output, agent.eventRate);
    const Agent::LibraryMessages messages(events);
    limitRights(user, setup.config.socketPath);
    traceFolderIs(setup.config);
    setup.onConfig = [&](const AgentLoop::Config& config) {
      events.ofASecondIs(config.settings.agent.eventRate);
      traceFolderIs(config);
    };
    std::unique_ptr<AgentLoop> loop;
    std::optional<Agent::StateParts> state;
    const auto begin = [&] {
      state.emplace(loop->views(), Mox::now(), json_ ? Agent::Format::json : Agent::Format::text);
      if (!json_) output.lines("\n");
    };
    setup.onStateRequested = [&] {
      if (!state) begin();
      return writePart(output, state);
    };
    loop = std::make_unique<AgentLoop>(setup, events);
    const Mox::Seconds end = loop->run() + endDuration;
    events.finish();
    if (output.isRead()) begin();
    while (output.isRead() && writePart(output, state)) {
      output.finish(end);
      if (Mox::now() < end) continue;
      output.event(notice("there are more groups than can be shown before the end"));
      break;
    }
    output.finish(end);
    // A million groups take longer to delete than the second that the end may take.
    [[maybe_unused]] static const AgentLoop* const leftToTheKernel = loop.release();
    return exitOk;
  }

 private:
  explicit RunVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  sudo igmpq run eth0 eth1            on these interfaces\n"
        "  sudo igmpq run --all --json         on all that are up now, with JSON Lines on standard "
        "output\n"
        "SIGUSR1 prints its state, SIGINT and SIGTERM end it with that, SIGHUP reads its files "
        "again.\n"
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

  // Beside the socket, where operators look for this agent.
  static void traceFolderIs(const AgentLoop::Config& config) {
    Agent::fatalTraceFolderIs(std::filesystem::path(config.socketPath).parent_path());
  }

  // The file in use, none where the command line says everything; and what that says.
  void readSources() {
    if (all_ && !interfaces_.empty()) throw BadUse("name interfaces or give --all, not both");
    std::error_code none;
    if (!config_.empty()) {
      file_ = config_;
    } else if (!all_ && interfaces_.empty() &&
               std::filesystem::exists(Agent::usualConfigPath, none)) {
      file_ = Agent::usualConfigPath;
    }
    given_.settings = settings_.given();
    given_.agent = agent_.given();
    if (const auto& boundary = settings_.boundary()) {
      given_.boundary.emplace();
      for (const auto& [prefix, value] : boundary->boundary()) given_.boundary->insert(prefix);
    }
  }

  // Those that the command line names stay the same; those of the file can come and go.
  std::vector<std::string> startingInterfaces() {
    const LinkTable links = Agent::currentLinks();
    if (all_) {
      named_ = usableNames(links);
      if (named_.empty()) {
        throw std::runtime_error(
            "there is no Ethernet interface that is up and has an IPv4 address; name one that "
            "`igmpq run` shall wait for");
      }
    } else if (!interfaces_.empty()) {
      for (const std::string& name : interfaces_) {
        checkFit(links, name);
        if (std::ranges::find(named_, name) == named_.end()) named_.push_back(name);
      }
    } else if (file_.empty()) {
      throw BadUse(noNameText(usableNames(links)));
    }
    return fitNames(links);
  }

  // The command line wins over the file. Of `fit` are the interfaces that a pattern of the file can
  // be for.
  AgentLoop::Config configOf(const std::vector<std::string>& fit) const {
    std::optional<Agent::Configuration> files;
    if (!file_.empty()) files = Agent::Configuration::read(file_);
    std::vector<std::string> names = named_;
    if (names.empty()) {
      if (!files->namesInterfaces()) throw BadUse(noInterfaceText(fit));
      names = files->interfacesAmong(fit);
    }
    AgentLoop::Config config{.settings =
                                 Agent::configuredAgent(files ? &*files : nullptr, given_, names)};
    const AgentSettings& agent = config.settings.agent;
    config.socketPath = agent.socket.empty() ? usualSocketPath_ : agent.socket;
    // The directory of users may have changed as well.
    config.rightsOf = Agent::peerRights(accessOf(agent));
    return config;
  }

  static std::string noNameText(const std::vector<std::string>& usable) {
    std::string text = fmt::format("name interfaces, here or in {}", Agent::usualConfigPath);
    if (!usable.empty()) text += fmt::format(", or give --all for {}", fmt::join(usable, ", "));
    return text;
  }

  // One line, as a running agent reports it as an event.
  static std::string noInterfaceText(const std::vector<std::string>& fit) {
    return fmt::format(
        "the configuration names no interface; add for instance the lines [[interface]] and name = "
        "\"{}\"",
        fit.empty() ? "eth0" : fit.front());
  }

  // False after the last part.
  bool writePart(RunOutput& output, std::optional<Agent::StateParts>& state) const {
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
  std::vector<std::string> named_;  // the same, each once, or those that --all stands for
  std::string config_;
  std::string file_;
  // As of the user who started it, not of the one that it becomes.
  const std::string usualSocketPath_ = Agent::attrLogSocketPath();
  Agent::GivenSettings given_;
  bool all_ = false;
  bool json_ = false;
  std::optional<long> seed_;
  AgentOptions agent_;
  Agent::QuerierSettings settings_;
};

}  // namespace

std::unique_ptr<Verb> runVerb(CLI::App& app) { return std::make_unique<RunVerb>(app); }

}  // namespace Igmpq
