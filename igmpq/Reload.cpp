// `igmpq reload`: has a running agent read its configuration again.
#include <cstdio>
#include <string>
#include <vector>

#include <Client/RequestClient.h>
#include <Text/Printable.h>

#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

namespace {

class ReloadVerb final : public Verb {
 public:
  explicit ReloadVerb(CLI::App& app)
      : ReloadVerb(
            app.add_subcommand("reload", "Read the configuration of a running agent again")) {}

  int run() override {
    Agent::EventLoop loop;
    Agent::RequestClient client(loop, requestPath(socket_));
    const std::vector<Agent::RequestClient::Change> changes = client.reload();
    bool isTaken = true;
    for (const auto& change : changes) {
      if (change.isFault) isTaken = false;
      const std::string text = json_ ? change.json : Agent::printable(change.text);
      std::fprintf(change.isFault && !json_ ? stderr : stdout, "%s\n", text.c_str());
    }
    if (changes.empty() && !json_) std::puts("nothing changed");
    if (isTaken) return exitOk;
    std::fputs("igmpq: nothing was taken over: the agent goes on as before\n", stderr);
    return exitFailure;
  }

 private:
  explicit ReloadVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  sudo igmpq reload          once it has read them, prints what changed\n"
        "  sudo igmpq reload --json   a JSON object a line for each change\n"
        "All of the files is taken over or nothing. Settings made with `igmpq set` stay where the "
        "files\nsay the same as before. `igmpq check` looks at the files first, `igmpq show "
        "config` "
        "shows what\nholds.\n"
        "Exit status: 0 taken over, 1 failure (no agent, no permission, a fault), 2 bad use.\n");
    options->add_flag("--json", json_, "write JSON Lines");
    addSocketOption(*options, socket_);
  }

  bool json_ = false;
  std::string socket_;
};

}  // namespace

std::unique_ptr<Verb> reloadVerb(CLI::App& app) { return std::make_unique<ReloadVerb>(app); }

}  // namespace Igmpq
