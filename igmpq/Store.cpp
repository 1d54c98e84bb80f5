// `igmpq store`: keeps the state of an agent while the agent is gone.
#include <csignal>
#include <optional>
#include <stdexcept>
#include <string>

#include <fmt/format.h>
#include <unistd.h>

#include <Client/AttrLogClient.h>
#include <Client/RequestClient.h>
#include <Events/LibraryMessages.h>
#include <Link/Privileges.h>
#include <Local/AttrLogSocket.h>
#include <Local/LocalSocket.h>
#include <Mox/ActivityClock.h>
#include <Mox/HashMap.h>
#include <Store/StateStore.h>
#include <Store/StoreReport.h>
#include <Text/Json.h>

#include "RandomNumber.h"
#include "RunOutput.h"
#include "Verb.h"

namespace Igmpq {

namespace {

// How long the last lines may wait for an output that does not take them.
constexpr Mox::Seconds endDuration = 0.5;

class StoreVerb final : public Verb {
 public:
  explicit StoreVerb(CLI::App& app)
      : StoreVerb(app.add_subcommand("store", "Keep the state of an agent while it is gone")) {}

  int run() override {
    if (socket_.empty()) socket_ = Agent::storeSocketPath();
    if (socket_.empty()) {
      throw BadUse("--socket is required: the environment has no XDG_RUNTIME_DIR");
    }
    if (forgetting_->count() > 0) return forget();
    return show_ ? show() : keep();
  }

 private:
  explicit StoreVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  sudo igmpq store                   keeps the state of root's agent until a signal\n"
        "  sudo igmpq store --show            what it keeps\n"
        "  sudo igmpq store --forget eth0     the next agent begins without the groups of eth0\n"
        "An agent continues with that state if it is started with the store's socket:\n"
        "  sudo igmpq run eth0 --store /run/igmpq-store/store.sock\n"
        "Exit status: 0 ok or ended by a signal, 1 failure (no store, no permission, no socket), 2 "
        "bad\nuse.\n");
    options->add_option("--socket", socket_, "the store's own")
        ->type_name("PATH")
        ->default_str(Agent::storeSocketPath());
    options->add_option("--agent", agent_, "socket of the agent whose state is kept")
        ->type_name("PATH")
        ->default_str(Agent::attrLogSocketPath());
    auto* show = options->add_flag("--show", show_, "print what a running store keeps, and end");
    forgetting_ = options
                      ->add_option("--forget", forgotten_,
                                   "have a running store forget this interface, and end")
                      ->type_name("INTERFACE")
                      ->excludes(show);
    options->add_flag("--json", json_, "write JSON, or events as JSON Lines");
  }

  int keep() {
    if (agent_.empty()) agent_ = Agent::attrLogSocketPath();
    if (agent_.empty()) {
      throw BadUse("--agent is required: the environment has no XDG_RUNTIME_DIR");
    }
    std::signal(SIGPIPE, SIG_IGN);
    Agent::keepNoRight();
    // Hosts choose the addresses of sources, and must not know which collide in tables.
    Mox::hashMultiplierIs(randomNumber());
    RunOutput output(json_);
    const Agent::LibraryMessages messages(output);
    Agent::EventLoop loop;
    loop.stopAtSignals();
    Agent::StateStore store(
        loop,
        {.path = socket_, .agentPath = agent_, .service = Agent::ServiceManager::fromEnvironment()},
        output);
    store.start();
    loop.run();
    output.finish(Mox::now() + endDuration);
    return exitOk;
  }

  int show() {
    Agent::EventLoop loop;
    Agent::AttrLogClient client(loop, socket_);
    client.fetch(Agent::connectToStore(socket_));
    if (!client.storeState()) {
      throw std::runtime_error(fmt::format("an agent serves {}, and no store", socket_));
    }
    Agent::printStore(stdout, *client.storeState(), client.interfaces(), Mox::now(),
                      json_ ? Agent::Format::json : Agent::Format::text);
    return exitOk;
  }

  int forget() {
    // A request without a name would be one for all interfaces.
    if (forgotten_.empty()) throw BadUse("--forget needs the name of an interface");
    Agent::EventLoop loop;
    // Where there is none, the error names the store.
    const Agent::Descriptor store = Agent::connectToStore(socket_);
    Agent::RequestClient client(loop, Agent::requestSocketPath(socket_));
    const Mox::U64 groups = client.clearGroups(forgotten_, {});
    if (json_) {
      fmt::print("{}\n", Agent::JsonObject()
                             .text("interface", forgotten_)
                             .number("groupsForgotten", groups)
                             .line());
    } else {
      fmt::print("{} {} of {} forgotten\n", groups, groups == 1 ? "group" : "groups", forgotten_);
    }
    return exitOk;
  }

  std::string socket_;
  std::string agent_;
  std::string forgotten_;
  bool show_ = false;
  bool json_ = false;
  CLI::Option* forgetting_ = nullptr;
};

}  // namespace

std::unique_ptr<Verb> storeVerb(CLI::App& app) { return std::make_unique<StoreVerb>(app); }

}  // namespace Igmpq
