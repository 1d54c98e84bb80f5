// `igmpq show`: the state of a running agent, once.
#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Client/AttrLogClient.h>
#include <Client/BadRequest.h>
#include <Client/CopyView.h>
#include <Mox/ActivityClock.h>
#include <Report/ModelReport.h>
#include <Report/StateReport.h>

#include "ShowConfig.h"
#include "SocketOption.h"
#include "Verb.h"

namespace Igmpq {

using Agent::Format;
using Agent::StatePart;

namespace {

// None for the settings, which come from the agent's requests.
constexpr std::array<std::pair<const char*, std::optional<StatePart>>, 6> parts{
    {{"all", StatePart::everything},
     {"interfaces", StatePart::interfaces},
     {"groups", StatePart::groups},
     {"sources", StatePart::sources},
     {"counters", StatePart::counters},
     {"config", std::nullopt}}};

const auto* partOf(std::string_view name) {
  return std::ranges::find(parts, name, &std::pair<const char*, std::optional<StatePart>>::first);
}

class ShowVerb final : public Verb {
 public:
  explicit ShowVerb(CLI::App& app)
      : ShowVerb(app.add_subcommand("show", "Show the state of a running agent")) {}

  int run() override {
    const std::optional<StatePart> part = takePart();
    if (model_ && part != StatePart::everything) {
      throw BadUse("--rfc8652 shows everything; only interfaces can be named");
    }
    if (!part) {
      showConfig(requestPath(socket_), words_, json_);
      return exitOk;
    }
    Agent::EventLoop loop;
    Agent::AttrLogClient client(loop, socketPath(socket_));
    client.fetch();
    if (model_) {
      printModel(client);
      return exitOk;
    }
    printState(stdout, *part, views(client.interfaces()), Mox::now(),
               json_ ? Format::json : Format::text);
    return exitOk;
  }

 private:
  explicit ShowVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq show                    everything\n"
        "  igmpq show groups eth0        the groups of one interface, with their sources\n"
        "  igmpq show counters --json\n"
        "  igmpq show config eth0        its settings, and where each comes from\n"
        "  igmpq show --rfc8652          for programs that know the model ietf-igmp-mld\n"
        "PART is interfaces, groups, sources, counters, config or all (if none).\n"
        "Exit status: 0 ok, 1 failure (no agent, no permission), 2 bad use.\n");
    options
        ->add_option("PART_INTERFACE", words_,
                     "a part of the state, then interfaces; all of both if none")
        ->type_name("")
        ->option_text("[PART] [INTERFACE...]")
        ->expected(0, -1);
    auto* const json = options->add_flag("--json", json_, "write JSON; times are seconds");
    options->add_flag("--rfc8652", model_, "write JSON of the YANG model ietf-igmp-mld")
        ->excludes(json);
    addSocketOption(*options, socket_);
  }

  // The rest of the words are interfaces.
  std::optional<StatePart> takePart() {
    if (words_.empty()) return StatePart::everything;
    const auto* const found = partOf(words_.front());
    if (found == parts.end()) return StatePart::everything;
    words_.erase(words_.begin());
    partNamed_ = true;
    return found->second;
  }

  // A word that is no interface may have been meant as a part.
  void checkKnown(const Agent::AttrLogCopy::Interfaces& interfaces, const std::string& name) const {
    try {
      interfaceOf(interfaces, name);
    } catch (const Agent::BadRequest& error) {
      if (partNamed_ && partOf(name) == parts.end()) throw;
      std::vector<std::string_view> known;
      known.reserve(parts.size());
      for (const auto& [part, shown] : parts) known.emplace_back(part);
      throw BadUse(fmt::format("{}; before the interfaces stands at most one part: {}",
                               error.what(), fmt::join(known, ", ")));
    }
  }

  void printModel(const Agent::AttrLogClient& client) const {
    std::vector<Agent::InterfaceView> all;
    for (const auto& [name, copy] : client.interfaces()) all.push_back(viewOf(name, copy));
    const std::string text =
        modelJson(all, views(client.interfaces()), client.process(), Mox::now());
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
  }

  std::vector<Agent::InterfaceView> views(const Agent::AttrLogCopy::Interfaces& interfaces) const {
    for (const std::string& name : words_) checkKnown(interfaces, name);
    std::vector<Agent::InterfaceView> all;
    for (const auto& [name, copy] : interfaces) {
      if (!words_.empty() && std::ranges::find(words_, name) == words_.end()) continue;
      all.push_back(viewOf(name, copy));
    }
    return all;
  }

  std::vector<std::string> words_;
  bool partNamed_ = false;
  bool json_ = false;
  bool model_ = false;
  std::string socket_;
};

}  // namespace

std::unique_ptr<Verb> showVerb(CLI::App& app) { return std::make_unique<ShowVerb>(app); }

}  // namespace Igmpq
