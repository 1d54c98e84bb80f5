// `igmpq get [PATH...]`: any attribute of any object of the running agent.
#include <cstdio>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "Client.h"
#include "RequestClient.h"
#include "Verb.h"

namespace Igmpq {

namespace {

using Json = RequestClient::Json;

class GetVerb final : public Verb {
 public:
  explicit GetVerb(CLI::App& app)
      : GetVerb(app.add_subcommand("get", "Read any attribute of a running agent")) {}

  int run() override {
    RequestClient client(socket_);
    if (completing_->count() > 0) {
      printLines(asked(client, {{"op", "complete"}, {"prefix", prefix_}}, "paths"));
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
        "`igmpq types` lists the types and attributes that there are. Times are seconds on the\n"
        "agent's clock.\n"
        "Exit status: 0 ok, 1 failure (no agent, no permission), 2 nothing at that path.\n");
    options->add_option("PATH", paths_, "what to read; where paths begin if none")
        ->type_name("")
        ->option_text("[PATH...]")
        ->expected(0, -1);
    options->add_flag("--json", json_, "write JSON, a line for each path");
    completing_ = options->add_option("--complete", prefix_, "print the paths that begin so")
                      ->type_name("PREFIX");
    addSocketOption(*options, socket_);
  }

  static Json asked(RequestClient& client, const Json& request, const char* wanted) {
    client.ask(request);
    Json answer = client.next().value_or(Json::object());
    if (!answer.contains(wanted)) client.notUnderstood(fmt::format("it lacks \"{}\"", wanted));
    return answer[wanted];
  }

  void get(RequestClient& client, const std::string& path) const {
    const Json content = asked(client, {{"op", "get"}, {"path", path}}, json_ ? "value" : "text");
    if (json_) {
      std::printf("%s\n", content.dump().c_str());
    } else if (content.is_object()) {
      for (const auto& [name, text] : content.items()) {
        std::printf("%s = %s\n", name.c_str(), wordsOf(text).c_str());
      }
    } else {
      printLines(content);
    }
  }

  // A text, or each of a list on a line of its own.
  static void printLines(const Json& texts) {
    if (!texts.is_array()) {
      std::printf("%s\n", wordsOf(texts).c_str());
      return;
    }
    for (const Json& text : texts) std::printf("%s\n", wordsOf(text).c_str());
  }

  static std::string wordsOf(const Json& text) {
    return text.is_string() ? text.get<std::string>() : text.dump();
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
