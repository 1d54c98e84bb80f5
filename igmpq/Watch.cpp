// `igmpq watch [INTERFACE...]`: the events of the running agent, when they happen.
#include <cstdio>
#include <string>
#include <vector>

#include <Client/AgentWatcher.h>

#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

namespace {

class WatchVerb final : public Verb {
 public:
  explicit WatchVerb(CLI::App& app)
      : WatchVerb(app.add_subcommand("watch", "Report what happens at a running agent")) {}

  int run() override {
    options_.path = socketPath(socket_);
    options_.interfaces = {interfaces_.begin(), interfaces_.end()};
    const auto sink = json_ ? Agent::jsonEventSink(stdout) : Agent::textEventSink(stdout);
    Agent::EventLoop loop;
    Agent::AgentWatcher watcher(loop, options_, *sink);
    loop.stopAtSignals();
    watcher.start();
    loop.run();
    return exitOk;
  }

 private:
  explicit WatchVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq watch                   joined, left, changed; roles; settings\n"
        "  igmpq watch eth0 --json       of one interface, as JSON Lines\n"
        "It goes on when the agent restarts, until SIGINT or SIGTERM.\n"
        "Exit status: 0 ended by a signal, 1 failure (no agent, no permission), 2 bad use.\n");
    options->add_option("INTERFACE", interfaces_, "interfaces of the agent; all if none")
        ->type_name("")
        ->expected(0, -1);
    options->add_flag("--json", json_, "write JSON Lines");
    options->add_flag("--counters", options_.counters, "report counters, at most once a second");
    options->add_flag("--existing", options_.fromTheBeginning,
                      "begin with the groups that are there, as if they had just joined");
    addSocketOption(*options, socket_);
  }

  Agent::AgentWatcher::Options options_;
  std::string socket_;
  std::vector<std::string> interfaces_;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Verb> watchVerb(CLI::App& app) { return std::make_unique<WatchVerb>(app); }

}  // namespace Igmpq
