// `igmpq watch [INTERFACE...]`: what happens at the running agent, as it happens.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <Client/CopyWatcher.h>
#include <Mox/ActivityClock.h>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "Client.h"
#include "Verb.h"

namespace Igmpq {

using Agent::AttrLogCopy;
using Agent::Event;
using boost::system::error_code;

namespace {

constexpr auto retryInterval = std::chrono::milliseconds(500);
constexpr auto counterInterval = std::chrono::seconds(1);

// The copies are told of when they are what the agent had at one moment: what it sends of one
// packet may come in pieces, and a group is there before its reporter is known.
class Watching {
 public:
  struct Options {
    std::string socket;
    std::set<std::string> interfaces;
    bool counters = false;
    bool fromTheBeginning = false;
  };

  Watching(const Options& options, Agent::EventSink& sink)
      : options_(options),
        sink_(sink),
        copy_(io_, socketPath(options.socket),
              {.onCurrent = [this] { handleCurrent(); },
               .onInput = [this] { handleInput(); },
               .onAnswer = [this](Mox::U32) { handleAnswer(); },
               .onEnded = [this](AttrLogCopy::End end,
                                 const std::string& why) { handleEnded(end, why); }}),
        watcher_(copy_.interfaces(),
                 {.interfaces = options.interfaces, .fromTheBeginning = options.fromTheBeginning},
                 sink) {}

  // Until SIGINT or SIGTERM.
  void run() {
    copy_.connect();
    signals_.async_wait([this](const error_code& failed, int) {
      if (!failed) io_.stop();
    });
    if (options_.counters) waitForCounters();
    io_.run();
  }

 private:
  void handleCurrent() {
    if (!everCurrent_) {
      for (const std::string& name : options_.interfaces) interfaceOf(copy_.interfaces(), name);
    } else {
      sink_.event({.time = Mox::now(), .kind = Event::agentBack});
    }
    everCurrent_ = current_ = true;
    watcher_.flush();
  }

  void handleInput() {
    if (!current_ || asked_ || !watcher_.changed()) return;
    asked_ = true;
    copy_.ask(1);
  }

  void handleAnswer() {
    asked_ = false;
    watcher_.flush();
  }

  void handleEnded(AttrLogCopy::End end, const std::string& why) {
    if (end == AttrLogCopy::End::strange || !everCurrent_) throw std::runtime_error(why);
    asked_ = false;
    if (std::exchange(current_, false)) {
      Event event{.time = Mox::now(), .kind = Event::agentLost};
      event.text = why + "; waiting for it to come back";
      sink_.event(event);
    }
    waitForRetry();
  }

  void waitForRetry() {
    retry_.expires_after(retryInterval);
    retry_.async_wait([this](const error_code& failed) {
      if (failed) return;
      try {
        copy_.connect();
      } catch (const Agent::AttrLogError&) {
        waitForRetry();
      }
    });
  }

  void waitForCounters() {
    counterTimer_.expires_after(counterInterval);
    counterTimer_.async_wait([this](const error_code& failed) {
      if (failed) return;
      if (current_) watcher_.flushCounters();
      waitForCounters();
    });
  }

  const Options& options_;
  Agent::EventSink& sink_;
  boost::asio::io_context io_{1};
  boost::asio::signal_set signals_{io_, SIGINT, SIGTERM};
  boost::asio::steady_timer retry_{io_};
  boost::asio::steady_timer counterTimer_{io_};
  AttrLogCopy copy_;
  Agent::CopyWatcher watcher_;
  bool everCurrent_ = false;
  bool current_ = false;
  bool asked_ = false;
};

class WatchVerb final : public Verb {
 public:
  explicit WatchVerb(CLI::App& app)
      : WatchVerb(app.add_subcommand("watch", "Tell what happens at a running agent")) {}

  int run() override {
    options_.interfaces = {interfaces_.begin(), interfaces_.end()};
    const auto sink = json_ ? Agent::jsonEventSink(stdout) : Agent::textEventSink(stdout);
    Watching watching(options_, *sink);
    watching.run();
    return exitOk;
  }

 private:
  explicit WatchVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq watch                   joined, left, changed; roles; settings\n"
        "  igmpq watch eth0 --json       of one interface, as JSON Lines\n"
        "It goes on when the agent restarts, until SIGINT or SIGTERM.\n"
        "Exit status: 0 ended by a signal, 1 failure (no agent, no permission), 2 bad use.\n");
    options->add_option("INTERFACE", interfaces_, "interfaces of the agent; all if none")
        ->type_name("")
        ->expected(0, -1);
    options->add_flag("--json", json_, "write JSON Lines");
    options->add_flag("--counters", options_.counters, "tell of counters, at most once a second");
    options->add_flag("--existing", options_.fromTheBeginning,
                      "begin with the groups that are there, as if they had just joined");
    addSocketOption(*options, options_.socket);
  }

  Watching::Options options_;
  std::vector<std::string> interfaces_;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Verb> watchVerb(CLI::App& app) { return std::make_unique<WatchVerb>(app); }

}  // namespace Igmpq
