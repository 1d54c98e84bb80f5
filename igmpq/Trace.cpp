// `igmpq trace`: the traces that the running agent has recorded.
#include <cstdio>
#include <optional>
#include <string>

#include <fmt/format.h>

#include <Client/RequestClient.h>
#include <Options/Options.h>
#include <Text/Printable.h>
#include <Text/TraceText.h>

#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

using Agent::RequestClient;

namespace {

class TraceVerb final : public Verb {
 public:
  explicit TraceVerb(CLI::App& app)
      : TraceVerb(app.add_subcommand("trace", "Show the traces of a running agent")) {}

  int run() override {
    Agent::EventLoop loop;
    RequestClient client(loop, requestPath(socket_));
    if (level_) client.levelIs(handle_, *level_);
    if (handles_) {
      printHandles(client);
    } else {
      printTraces(client);
    }
    return exitOk;
  }

 private:
  explicit TraceVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq trace                        the recorded lines, the oldest first\n"
        "  igmpq trace --follow --json        and all later ones, as JSON Lines\n"
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

  void printHandles(RequestClient& client) const {
    for (const RequestClient::Handle& handle : client.handles(handle_)) {
      if (json_) {
        fmt::print("{}\n", handle.json);
      } else {
        fmt::print("{:<16} {:2}\n", Agent::printable(handle.name), handle.level);
      }
    }
  }

  // Printed lines are shown before the next one is waited for.
  void printTraces(RequestClient& client) const {
    follow_ ? client.followTraces(handle_) : client.trace(handle_);
    while (const auto line = client.nextTrace()) {
      print(*line);
      if (!client.isLineReady()) std::fflush(stdout);
    }
  }

  void print(const RequestClient::TraceLine& line) const {
    if (json_) {
      fmt::print("{}\n", line.json);
    } else if (line.lost) {
      fmt::print(stderr, "igmpq: {} lines are lost: newer ones took their place first\n",
                 *line.lost);
    } else {
      const std::string text = Agent::traceText(line.time, line.level, line.handle, line.text);
      fmt::print("{}\n", Agent::printable(text));
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
