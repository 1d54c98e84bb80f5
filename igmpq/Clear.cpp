// `igmpq clear groups [INTERFACE [GROUP]]`: ends groups of a running agent.
#include <string>

#include <fmt/format.h>

#include <Client/RequestClient.h>

#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

namespace {

class ClearVerb final : public Verb {
 public:
  explicit ClearVerb(CLI::App& app)
      : ClearVerb(app.add_subcommand("clear", "End groups of a running querier")) {}

  int run() override {
    if (what_ != "groups") throw BadUse(fmt::format("cannot clear {}; there are: groups", what_));
    // Without a value the option would stand for all.
    if (interfaceOption_->count() > 0 && interface_.empty()) {
      throw BadUse("INTERFACE is empty; leave it out to clear all interfaces");
    }
    if (groupOption_->count() > 0 && group_.empty()) {
      throw BadUse("GROUP is empty; leave it out to clear all groups");
    }
    Agent::EventLoop loop;
    Agent::RequestClient client(loop, requestPath(socket_));
    const Mox::U64 groups = client.clearGroups(interface_, group_);
    fmt::print("{} {} cleared\n", groups, groups == 1 ? "group" : "groups");
    return exitOk;
  }

 private:
  explicit ClearVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  sudo igmpq clear groups                   of all interfaces\n"
        "  sudo igmpq clear groups eth0              of one interface\n"
        "  sudo igmpq clear groups eth0 239.1.1.1    one group\n"
        "The groups end as if their members had left; members join again at the next query.\n"
        "Exit status: 0 cleared, 1 failure (no agent, no permission), 2 bad use.\n");
    options->add_option("WHAT", what_, "groups")->type_name("")->option_text("groups")->required();
    interfaceOption_ =
        options->add_option("INTERFACE", interface_, "interface of the running agent; all if none")
            ->type_name("");
    groupOption_ =
        options->add_option("GROUP", group_, "address of the group; all if none")->type_name("");
    addSocketOption(*options, socket_);
  }

  std::string what_;
  std::string interface_;
  std::string group_;
  CLI::Option* interfaceOption_ = nullptr;
  CLI::Option* groupOption_ = nullptr;
  std::string socket_;
};

}  // namespace

std::unique_ptr<Verb> clearVerb(CLI::App& app) { return std::make_unique<ClearVerb>(app); }

}  // namespace Igmpq
