// `igmpq call INTERFACE OPERATION`: an operation of a running querier.
#include <string>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Client/RequestClient.h>
#include <Server/QuerierOperations.h>

#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

namespace {

class CallVerb final : public Verb {
 public:
  explicit CallVerb(CLI::App& app)
      : CallVerb(app.add_subcommand("call", "Call an operation of a running querier")) {}

  int run() override {
    Agent::EventLoop loop;
    Agent::RequestClient client(loop, requestPath(socket_));
    client.call(interface_, operation_);
    return exitOk;
  }

 private:
  explicit CallVerb(CLI::App* options) : Verb(options) {
    options->footer(
        fmt::format("Examples:\n"
                    "  sudo igmpq call eth0 clearCounters\n"
                    "  sudo igmpq call eth0 becomeQuerier\n"
                    "OPERATION is one of {}. Nothing is printed when it was called.\n"
                    "Exit status: 0 called, 1 failure (no agent, no permission, no querier there "
                    "now), 2 bad use.\n",
                    fmt::join(Agent::querierOperationNames(), ", ")));
    options->add_option("INTERFACE", interface_, "interface of the running agent")
        ->type_name("")
        ->required();
    options->add_option("OPERATION", operation_, "operation of its querier")
        ->type_name("")
        ->required();
    addSocketOption(*options, socket_);
  }

  std::string interface_;
  std::string operation_;
  std::string socket_;
};

}  // namespace

std::unique_ptr<Verb> callVerb(CLI::App& app) { return std::make_unique<CallVerb>(app); }

}  // namespace Igmpq
