// `igmpq web`: the state of the running agent over HTTP, for reading only.
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include <Link/Privileges.h>
#include <Service/ServiceManager.h>
#include <Text/Counted.h>
#include <Web/WebServer.h>
#include <fmt/format.h>

#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

namespace {

Agent::WebAddress addressOf(const std::string& text) {
  try {
    return Agent::WebAddress::of(text);
  } catch (const std::invalid_argument& error) {
    throw BadUse(std::string("--listen: ") + error.what());
  }
}

class WebVerb final : public Verb {
 public:
  explicit WebVerb(CLI::App& app)
      : WebVerb(app.add_subcommand("web", "Serve the state of an agent over HTTP")) {}

  int run() override {
    const Agent::WebAddress address = addressOf(address_);
    if (!address.isLoopback && !allowRemote_) {
      throw BadUse(address_ +
                   " can be reached from other machines, and everybody there could read "
                   "the state; give --allow-remote if that is wanted");
    }
    Agent::EventLoop loop;
    Agent::WebState state(loop, socketPath(socket_));
    const Agent::WebRoutes routes(state);
    Agent::WebServer server(loop, routes,
                            {.address = address, .hosts = {hosts_.begin(), hosts_.end()}});
    server.start();
    Agent::keepNoRight();
    loop.stopAtSignals();
    state.start();
    std::printf("serving %s\n", placeOf(address, server.port()).c_str());
    std::fflush(stdout);
    Agent::ServiceManager manager(loop.wheel(), Agent::ServiceManager::fromEnvironment(),
                                  [&] { return statusOf(state, server); });
    manager.stateIs(Agent::ServiceManager::ready);
    loop.run();
    manager.stateIs(Agent::ServiceManager::stopping);
    return exitOk;
  }

 private:
  explicit WebVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq web                     for a browser, http://127.0.0.1:9645/, and for programs,\n"
        "                                http://127.0.0.1:9645/api/v1/interfaces and /metrics\n"
        "  igmpq web --listen unix:/run/igmpq-web/web.sock\n"
        "  igmpq web --listen 0.0.0.0:9645 --allow-remote --host querier.example\n"
        "It goes on when the agent restarts, until SIGINT or SIGTERM.\n"
        "Exit status: 0 ended by a signal, 1 failure (the port is in use), 2 bad use.\n");
    options->add_option("--listen", address_, "address and port, or unix:PATH")
        ->capture_default_str()
        ->type_name("ADDRESS");
    options->add_flag("--allow-remote", allowRemote_,
                      "serve at an address that other machines can reach");
    options
        ->add_option("--host", hosts_,
                     "a name by which clients call this server, besides "
                     "addresses and localhost; may be given several times")
        ->type_name("NAME");
    addSocketOption(*options, socket_);
  }

  static std::string statusOf(const Agent::WebState& state, const Agent::WebServer& server) {
    const auto& agent = state.agent();
    return fmt::format("{}, {}",
                       agent.isCurrent() ? Agent::counted(state.interfaces().size(), "interface")
                                         : "no agent: " + agent.absence(),
                       Agent::counted(server.sessions(), "client"));
  }
  static std::string placeOf(const Agent::WebAddress& address, Mox::U16 port) {
    if (address.isPath) return "unix:" + address.address;
    const bool isLong = address.address.find(':') != std::string::npos;
    const std::string host = isLong ? '[' + address.address + ']' : address.address;
    return fmt::format("http://{}:{}/", host, port);
  }

  std::string address_ = "127.0.0.1:9645";
  bool allowRemote_ = false;
  std::vector<std::string> hosts_;
  std::string socket_;
};

}  // namespace

std::unique_ptr<Verb> webVerb(CLI::App& app) { return std::make_unique<WebVerb>(app); }

}  // namespace Igmpq
