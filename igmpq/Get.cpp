// `igmpq get [PATH...]`: any attribute of any object of the running agent.
#include <string>
#include <vector>

#include <fmt/format.h>

#include <Client/RequestClient.h>
#include <Text/Printable.h>

#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

namespace {

class GetVerb final : public Verb {
 public:
  explicit GetVerb(CLI::App& app)
      : GetVerb(app.add_subcommand("get", "Read any attribute of a running agent")) {}

  int run() override {
    Agent::EventLoop loop;
    Agent::RequestClient client(loop, requestPath(socket_));
    if (completing_->count() > 0) {
      printLines(client.completions(prefix_));
    } else if (paths_.empty()) {
      get(client, "");
    } else {
      for (const std::string& path : paths_) get(client, path);
    }
    return exitOk;
  }

 private:
  explicit GetVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq get                                   where paths begin\n"
        "  igmpq get config/eth0/queryInterval         one value\n"
        "  igmpq get status/eth0                       all attributes of an object\n"
        "  igmpq get status/eth0/group                 the keys of a collection\n"
        "  igmpq get 'status/eth0/group[239.1.1.1]/expiryTime'\n"
        "  igmpq get 'querierSm/eth0/groupSm[239.1.1.1]/source' --json\n"
        "`igmpq types` lists the types with their attributes. Times are seconds on the\n"
        "agent's clock.\n"
        "Exit status: 0 ok, 1 failure (no agent, no permission), 2 nothing at that path.\n");
    options->add_option("PATH", paths_, "paths to read; where paths begin if none")
        ->type_name("")
        ->option_text("[PATH...]")
        ->expected(0, -1);
    options->add_flag("--json", json_, "write JSON, a line for each path");
    completing_ = options->add_option("--complete", prefix_, "print the paths that begin so")
                      ->type_name("PREFIX");
    addSocketOption(*options, socket_);
  }

  void get(Agent::RequestClient& client, const std::string& path) const {
    const Agent::RequestClient::PathText content = client.get(path);
    if (json_) {
      fmt::print("{}\n", content.json);
    } else {
      printLines(content.lines);
    }
  }

  static void printLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) fmt::print("{}\n", Agent::printable(line));
  }

  std::vector<std::string> paths_;
  std::string prefix_;
  std::string socket_;
  bool json_ = false;
  CLI::Option* completing_ = nullptr;
};

}  // namespace

std::unique_ptr<Verb> getVerb(CLI::App& app) { return std::make_unique<GetVerb>(app); }

}  // namespace Igmpq
