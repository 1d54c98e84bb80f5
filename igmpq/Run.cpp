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

#include <Events/EventBudget.h>
#include <Events/EventOutput.h>
#include <Events/LibraryMessages.h>
#include <Host/AgentLoop.h>
#include <Link/LinkMonitor.h>
#include <Link/Privileges.h>
#include <Local/Accounts.h>
#include <Local/AgentErrors.h>
#include <Local/AttrLogSocket.h>
#include <Local/LocalPeer.h>
#include <Mox/ActivityClock.h>
#include <Mox/HashMap.h>
#include <Options/Options.h>
#include <Report/StateReport.h>
#include <Settings/QuerierSettings.h>
#include <Text/TraceText.h>

#include "Verb.h"

namespace Igmpq {

using Agent::AgentLoop;
using Agent::EventOutput;
using Agent::Link;
using Agent::LinkTable;

namespace {

constexpr const char* allGroups = "all";  // the value of --read-group for every user

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

void checkFit(const LinkTable& links, const std::string& name) {
  const Link* link = links.find(name);
  if (link == nullptr) {
    throw BadUse(fmt::format("there is no interface {}; this machine has: {}", name,
                             fmt::join(links.names(), ", ")));
  }
  const std::string unfit = whyUnfit(*link);
  if (!unfit.empty()) throw BadUse(fmt::format("interface {} {}", name, unfit));
  if (link->mtu < Agent::minIpv4Mtu) {
    throw BadUse(
        fmt::format("interface {0} has an MTU of {1}, but IPv4 needs at least {2}; "
                    "`ip link set {0} mtu 1500`",
                    name, link->mtu, Agent::minIpv4Mtu));
  }
}

std::vector<std::string> usableNames(const LinkTable& links) {
  std::vector<std::string> names;
  for (const auto& [index, link] : links.links()) {
    if (isUsable(link)) names.push_back(link.name);
  }
  if (names.empty()) {
    throw std::runtime_error(
        "there is no Ethernet interface that is up and has an IPv4 address; name one that `igmpq "
        "run` shall wait for");
  }
  return names;
}

class RunVerb final : public Verb {
 public:
  explicit RunVerb(CLI::App& app)
      : RunVerb(app.add_subcommand("run", "Be the querier of network interfaces")) {}

  // Errors of the command line and missing rights are found before anything is opened.
  int run() override {
    const std::vector<std::string> names = interfaceNames();
    const std::optional<Agent::User> user = userOption();
    const std::optional<Agent::AttrLogServer::Setup> attrLog = attrLogSetup();
    const std::string missing = Agent::missingPrivilege();
    if (!missing.empty()) throw std::runtime_error(missing);
    Agent::raiseDescriptorLimit();
    chanceIs(seed_);
    std::signal(SIGPIPE, SIG_IGN);
    // Another user may be unable to open it again.
    EventOutput output(STDOUT_FILENO, json_ ? EventOutput::json : EventOutput::text);
    Agent::EventBudget events(output, eventRate_);
    const Agent::LibraryMessages messages(events);
    const std::string traceFolder = folderOfTraces();
    AgentLoop::Setup setup{.interfaces = {},
                           .reportQueries = queries_,
                           .eventScope = scopes.at(events_),
                           .onStateRequested = {},
                           .attrLog = attrLog,
                           .attrLogRequired = !socket_.empty(),
                           .ringBytes = {}};
    if (ringKib_) setup.ringBytes = *ringKib_ * 1024;
    for (const std::string& name : names) {
      const auto config = Gmp::Igmp::querierConfigFactory(name);
      const auto intake = Mox::makePtr<Agent::IntakeConfig>(name);
      settings_.apply({.config = config, .intake = intake, .process = setup.process});
      setup.interfaces.push_back({name, config, intake, settings_.boundary()});
    }
    rightsAre(user);
    Agent::fatalTraceFolderIs(traceFolder);
    std::optional<AgentLoop> loop;
    setup.onStateRequested = [&] { output.lines(stateOf(*loop)); };
    loop.emplace(setup, events);
    loop->run();
    events.finish();
    output.lines(stateOf(*loop));
    return exitOk;
  }

 private:
  explicit RunVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  sudo igmpq run eth0 eth1            on these interfaces\n"
        "  sudo igmpq run --all --json         on all that are up now, with JSON Lines on standard "
        "output\n"
        "  sudo igmpq run eth0 --boundary 239.255.0.0/16\n"
        "It runs until SIGINT or SIGTERM and prints its state then, and at each SIGUSR1.\n"
        "It never waits for its output: events that find no room are lost, and counted.\n"
        "Exit status: 0 ended by a signal, 1 failure (no permission, no socket), 2 bad use.\n");
    options->add_option("INTERFACE", interfaces_, "Ethernet interfaces")
        ->type_name("")
        ->expected(0, -1);
    options->add_flag("--all", all_, "all Ethernet interfaces that are up now and have an address");
    options->add_flag("--json", json_, "write JSON Lines");
    options->add_flag("--queries", queries_, "report each query sent");
    options
        ->add_option("--events", events_,
                     "groups and sources that are reported: all; changes (more than 32 sources of "
                     "a group at once as their number); none")
        ->type_name("WHICH")
        ->default_str("changes")
        ->check([](const std::string& given) {
          return scopes.contains(given) ? "" : given + " is none of all, changes and none";
        });
    addNumber(*options, "--event-rate", "N", {.least = 0, .most = 1000000, .whole = true},
              "events of a kind reported within a second, the others as their number; 0: all",
              [this](double rate) { eventRate_ = static_cast<Mox::U64>(rate); })
        ->default_str("100");
    addNumber(*options, "--seed", "N", {.least = 0, .most = 4294967295, .whole = true},
              "of random delays (random)",
              [this](double seed) { seed_ = static_cast<long>(seed); });
    addNumber(*options, "--ring-size", "KIB", {.least = 32, .most = 1048576, .whole = true},
              "of each interface's receive ring (4096 for up to 16 interfaces, else 65536 in all)",
              [this](double kib) { ringKib_ = static_cast<size_t>(kib); });
    addAccess(*options);
    addSettings(*options, settings_);
  }

  void addAccess(CLI::App& options) {
    options
        .add_option("--socket", socket_, "socket at which other processes read and set the state")
        ->type_name("PATH")
        ->default_str(Agent::attrLogSocketPath());
    addNumber(options, "--stall-timeout", "SECONDS", {.least = 1, .most = 86400},
              "over which a reader in arrears must take 64 KiB/s, or is disconnected",
              [this](double seconds) { stallTimeout_ = seconds; })
        ->default_str("30");
    addNumber(options, "--max-readers", "N", {.least = 1, .most = 4096, .whole = true},
              "of the attribute log at a time",
              [this](double readers) { maxReaders_ = static_cast<size_t>(readers); })
        ->default_str("64");
    options
        .add_option("--user", user_,
                    "the user that the agent becomes; the right to raw packets stays (this one)")
        ->type_name("NAME");
    options
        .add_option(Agent::readGroupOption, readGroup_,
                    "group whose members can read the state, or all for every user (none)")
        ->type_name("NAME");
    options
        .add_option(Agent::configureGroupOption, configureGroup_,
                    "group whose members can read and change it (none)")
        ->type_name("NAME");
  }

  // Without a path on the command line it is no error when another agent serves at the usual one.
  std::optional<Agent::AttrLogServer::Setup> attrLogSetup() const {
    const Agent::PeerAccess access{
        .isOpen = readGroup_ == allGroups,
        .readGroup = readGroup_ == allGroups ? std::nullopt
                                             : groupOption(Agent::readGroupOption, readGroup_),
        .configureGroup = groupOption(Agent::configureGroupOption, configureGroup_)};
    const std::string path = socketPath();
    if (path.empty()) return std::nullopt;
    return Agent::AttrLogServer::Setup{.path = path,
                                       .stallTimeout = stallTimeout_,
                                       .maxReaders = maxReaders_,
                                       .rightsOf = Agent::peerRights(access)};
  }

  std::string socketPath() const { return socket_.empty() ? Agent::attrLogSocketPath() : socket_; }

  static std::optional<gid_t> groupOption(const char* option, const std::string& name) {
    if (name.empty()) return std::nullopt;
    const auto group = Agent::groupNamed(name);
    if (!group) throw BadUse(fmt::format("{} {}: there is no group of that name", option, name));
    return group;
  }

  std::optional<Agent::User> userOption() const {
    if (user_.empty()) return std::nullopt;
    auto user = Agent::userNamed(user_);
    if (!user) throw BadUse(fmt::format("--user {}: there is no user of that name", user_));
    if (geteuid() != 0 && user->id != geteuid()) {
      throw BadUse(fmt::format("--user {}: only root can become another user", user_));
    }
    return user;
  }

  // The folder of the sockets is made first: the user that the agent becomes may be unable to.
  void rightsAre(const std::optional<Agent::User>& user) const {
    const bool isRoot = geteuid() == 0;
    if (isRoot && !socketPath().empty()) {
      Agent::socketFolderIs(socketPath(), user ? user->id : 0, user ? user->group : 0);
    }
    Agent::keepPacketRightOnly(isRoot ? user : std::nullopt);
  }

  // Beside the socket, where operators look for this agent.
  std::string folderOfTraces() const { return std::filesystem::path(socketPath()).parent_path(); }

  // As they were named, each once.
  std::vector<std::string> interfaceNames() const {
    const LinkTable links = Agent::currentLinks();
    if (all_ && !interfaces_.empty()) throw BadUse("name interfaces or give --all, not both");
    if (all_) return usableNames(links);
    if (interfaces_.empty()) {
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

  std::string stateOf(const AgentLoop& loop) const {
    const auto everything = Agent::StatePart::everything;
    if (json_) return stateJson(everything, loop.views(), Mox::now());
    return "\n" + stateText(everything, loop.views(), Mox::now()) + "\n";
  }

  std::vector<std::string> interfaces_;
  bool all_ = false;
  bool json_ = false;
  bool queries_ = false;
  std::string events_ = "changes";
  Mox::U64 eventRate_ = 100;
  std::optional<long> seed_;
  std::string socket_;
  Mox::Seconds stallTimeout_ = 30.0;
  std::string user_;
  std::string readGroup_;
  std::string configureGroup_;
  size_t maxReaders_ = 64;
  std::optional<size_t> ringKib_;
  Agent::QuerierSettings settings_;
};

}  // namespace

std::unique_ptr<Verb> runVerb(CLI::App& app) { return std::make_unique<RunVerb>(app); }

}  // namespace Igmpq
