// `igmpq set INTERFACE ATTRIBUTE=VALUE...`: settings of a running querier.
#include <cstdio>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Client/AttrLogClient.h>
#include <Client/SettingWrite.h>
#include <Local/AgentErrors.h>
#include <Settings/SettingError.h>
#include <Settings/SettingText.h>

#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

namespace {

constexpr std::chrono::seconds longestWait(5);

class SetVerb final : public Verb {
 public:
  explicit SetVerb(CLI::App& app)
      : SetVerb(app.add_subcommand("set", "Change settings of a running querier")) {}

  int run() override {
    Agent::SettingWrite settings;
    try {
      for (const std::string& assignment : assignments_) settings.add(assignment);
      return write(settings);
    } catch (const Agent::SettingError& error) {
      throw BadUse(error.what());
    }
  }

 private:
  explicit SetVerb(CLI::App* options) : Verb(options) {
    options->footer(fmt::format(
        "Examples:\n"
        "  sudo igmpq set eth0 queryInterval=60 robustness=3\n"
        "  sudo igmpq set eth0 query-interval=30 query-response-interval=5\n"
        "  sudo igmpq set eth0 sendQuery=off\n"
        "  sudo igmpq set eth0 max-groups=1000 permitted-queriers=10.0.0.1\n"
        "ATTRIBUTE is one of {}; `igmpq run --help-all` explains them and `igmpq show config` "
        "shows "
        "their values. A restarted agent begins with the settings of its command line and files,\n"
        "unless a store has kept these.\n"
        "Exit status: 0 set, 1 failure (no agent, no permission, refused), 2 bad use.\n",
        fmt::join(Agent::settingNames(), ", ")));
    options->add_option("INTERFACE", interface_, "interface of the running agent")
        ->type_name("")
        ->required();
    options->add_option("SETTING", assignments_, "settings; all are set or none")
        ->type_name("")
        ->option_text("ATTRIBUTE=VALUE...")
        ->required()
        ->expected(1, -1);
    addSocketOption(*options, socket_);
  }

  int write(const Agent::SettingWrite& settings) const {
    Agent::EventLoop loop;
    Agent::AttrLogClient client(loop, socketPath(socket_));
    client.fetch();
    const Agent::AttrLogCopy::Interface& copy = interfaceOf(client.interfaces(), interface_);
    settings.checkAgainst(copy);
    if (!copy.configurable) {
      throw std::runtime_error(
          Agent::notPermittedText("configure the agent", Agent::configureGroupOption) +
          "; nothing was set");
    }
    client.writeTogether([&] { settings.write(copy); });
    if (!client.settle(longestWait)) {
      throw std::runtime_error(fmt::format(
          "the agent has not answered within {} s; `igmpq show config {}` shows what is set",
          longestWait.count(), interface_));
    }
    for (const std::string& line : settings.outcome(copy)) {
      fmt::print("{} {}\n", interface_, line);
    }
    return exitOk;
  }

  std::string interface_;
  std::vector<std::string> assignments_;
  std::string socket_;
};

}  // namespace

std::unique_ptr<Verb> setVerb(CLI::App& app) { return std::make_unique<SetVerb>(app); }

}  // namespace Igmpq
