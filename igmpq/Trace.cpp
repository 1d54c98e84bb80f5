// `igmpq trace`: what the running agent has recorded of its own doings.
#include <cstdio>
#include <optional>
#include <string>

#include <fmt/format.h>

#include <Options/Options.h>
#include <Text/TraceText.h>

#include "Client.h"
#include "RequestClient.h"
#include "Verb.h"

namespace Igmpq {

using Json = RequestClient::Json;

namespace {

class TraceVerb final : public Verb {
 public:
  explicit TraceVerb(CLI::App& app)
      : TraceVerb(app.add_subcommand("trace", "Show the traces of a running agent")) {}

  int run() override {
    RequestClient client(socket_);
    if (level_) setLevel(client);
    try {
      if (handles_) {
        printHandles(client);
      } else {
        printTraces(client);
      }
    } catch (const Json::exception& error) {
      client.notUnderstood(error.what());
    }
    return exitOk;
  }

 private:
  explicit TraceVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq trace                        what is recorded, the oldest first\n"
        "  igmpq trace --follow --json        and what will be, as JSON Lines\n"
        "  sudo igmpq trace --handle IgmpPacket --level 8 --follow\n"
        "A line is the time in seconds on the agent's clock, the level, the handle and the text. "
        "The newest lines of about a megabyte are kept.\n"
        "Exit status: 0 ok or ended by a signal, 1 failure (no agent, no permission), 2 bad "
        "use.\n");
    options->add_option("--handle", handle_, "only of that handle")->type_name("NAME");
    addNumber(*options, "--level", "N", {.least = -1, .most = 9, .whole = true},
              "record up to that level from now on, of the handle or of all; -1 records nothing, 3 "
              "events, 8 every detail",
              [this](double level) { level_ = static_cast<int>(level); });
    CLI::Option* follow = options->add_flag("--follow", follow_, "go on until interrupted");
    options->add_flag("--handles", handles_, "list the handles with their levels")
        ->excludes(follow);
    options->add_flag("--json", json_, "write JSON Lines");
    addSocketOption(*options, socket_);
  }

  // The request itself, and the handle where one was named.
  Json request(const char* op) const {
    Json json;
    json["op"] = op;
    if (!handle_.empty()) json["handle"] = handle_;
    return json;
  }

  void setLevel(RequestClient& client) const {
    Json json = request("traceLevel");
    json["level"] = *level_;
    client.ask(json);
    client.next();
  }

  void printHandles(RequestClient& client) const {
    client.ask(request("traceHandles"));
    const std::optional<Json> answer = client.next();
    for (const Json& handle : answer->at("handles")) {
      if (json_) {
        fmt::print("{}\n", handle.dump());
      } else {
        fmt::print("{:<16} {:2}\n", handle.at("name").get<std::string>(),
                   handle.at("level").get<int>());
      }
    }
  }

  void printTraces(RequestClient& client) const {
    Json json = request("trace");
    json["follow"] = follow_;
    client.ask(json);
    if (follow_) client.follow();
    while (const std::optional<Json> line = next(client)) {
      if (line->contains("end")) break;
      print(*line);
    }
  }

  // What has been printed shows before the next line is waited for.
  static std::optional<Json> next(RequestClient& client) {
    if (!client.ready()) std::fflush(stdout);
    return client.next();
  }

  void print(const Json& line) const {
    if (json_) {
      fmt::print("{}\n", line.dump());
    } else if (const auto lost = line.find("lost"); lost != line.end()) {
      fmt::print(stderr, "igmpq: {} lines are lost: newer ones took their place first\n",
                 lost->get<Mox::U64>());
    } else {
      fmt::print("{}\n",
                 Agent::traceText(line.at("time").get<double>(), line.at("level").get<int>(),
                                  line.at("handle").get<std::string>(),
                                  line.at("text").get<std::string>()));
    }
  }

  std::string handle_;
  std::optional<int> level_;
  bool follow_ = false;
  bool handles_ = false;
  bool json_ = false;
  std::string socket_;
};

}  // namespace

std::unique_ptr<Verb> traceVerb(CLI::App& app) { return std::make_unique<TraceVerb>(app); }

}  // namespace Igmpq
