// `igmpq replay`: a capture or a scenario in virtual time.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <Mox/ActivityClock.h>
#include <Options/Options.h>
#include <Replay/CaptureReplay.h>
#include <Scenario/Scenario.h>
#include <Settings/QuerierSettings.h>

#include "Verb.h"

namespace Igmpq {

using Agent::CaptureFile;
using Agent::CaptureReplay;
using Agent::Format;
using Ilvo::IpAddr;

namespace {

constexpr double year = 366.0 * 86400.0;

class ReplayVerb final : public Verb {
 public:
  explicit ReplayVerb(CLI::App& app)
      : ReplayVerb(app.add_subcommand("replay", "Replay a capture or a scenario in virtual time")) {
  }

  int run() override {
    if (!scenario_.file.empty()) {
      refuseOptionsOfCaptures();
      return Agent::runScenario(scenario_, stdout, stderr);
    }
    if (path_.empty()) throw BadUse("replay: name a CAPTURE, or a --scenario FILE");
    if (replay_.address.isZero()) {
      throw BadUse("--address is required: the replayed querier's own address, such as 10.0.0.1");
    }
    try {
      CaptureFile file(path_);
      replay(file);
    } catch (const Agent::CaptureError& error) {
      throw BadUse(error.what());
    }
    return exitOk;
  }

 private:
  explicit ReplayVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq replay trace.pcap --address 10.0.0.1\n"
        "  igmpq replay trace.pcap --address 10.0.0.1 --until 600 --json\n"
        "  igmpq replay trace.pcap --address 10.0.0.1 --intake\n"
        "  igmpq replay --scenario join.scenario --changes\n"
        "A capture needs --address; the settings are those of its querier. A scenario has its "
        "own;\n"
        "`man igmpq-scenario` explains how to write one. Neither needs an agent or rights.\n"
        "Exit status: 0 replayed, 1 failure, 2 bad use, 3 timers of a scenario never settle.\n");
    auto* capture =
        options->add_option("CAPTURE", path_, "pcap or pcapng file, - for standard input")
            ->type_name("");
    auto* scenario =
        options->add_option("--scenario", scenario_.file, "scenario file, - for standard input")
            ->type_name("FILE")
            ->excludes(capture);
    options
        ->add_flag("--changes", scenario_.changes, "of a scenario: write every change of the state")
        ->needs(scenario);
    options->add_flag("--traces", scenario_.traces, "of a scenario: write every trace")
        ->needs(scenario);
    addNumber(*options, "--seed", "N", {.least = 0, .most = 4294967295, .whole = true},
              "of random delays (0)",
              [this](double seed) { replay_.seed = scenario_.seed = static_cast<Mox::U32>(seed); });
    options->add_flag("--json", json_, "write JSON Lines, as a scenario does anyway");
    const std::vector<const CLI::Option*> ofBoth = std::as_const(*options).get_options();
    options
        ->add_option_function<std::string>(
            "--address", [this](const std::string& text) { replay_.address = addressOf(text); },
            "own address of the replayed querier")
        ->type_name("A.B.C.D");
    addNumber(*options, "--until", "SECONDS", {.least = 0, .most = year},
              "go on that long after the last frame (0)",
              [this](double seconds) { replay_.until = seconds; });
    addNumber(*options, "--max-gap", "SECONDS", {.least = 0, .most = year},
              "shorten longer gaps between frames (86400)",
              [this](double seconds) { replay_.maxGap = seconds; });
    auto* intake = options->add_flag(
        "--intake", intake_, "refuse what an agent refuses, and print each packet with the reason");
    options
        ->add_option_function<std::string>(
            "--subnets", [this](const std::string& text) { replay_.subnets = subnetsOf(text); },
            "with --intake: the captured link's, outside of which a querier is foreign")
        ->type_name("PREFIXES")
        ->needs(intake);
    addSettings(*options, settings_);
    ofCaptures_ = std::as_const(*options).get_options([&ofBoth](const CLI::Option* option) {
      return std::ranges::find(ofBoth, option) == ofBoth.end();
    });
  }

  void refuseOptionsOfCaptures() const {
    for (const CLI::Option* option : ofCaptures_) {
      if (option->count() == 0) continue;
      throw BadUse(fmt::format("{} is for a capture; a scenario has its own", option->get_name()));
    }
  }

  static IpAddr addressOf(const std::string& text) {
    const auto address = IpAddr::parse(text);
    if (address && address->isUnicast() && !address->isZero()) return *address;
    throw CLI::ValidationError(fmt::format("--address {}", text),
                               "must be a unicast IPv4 address such as 10.0.0.1");
  }

  static Agent::PrefixList subnetsOf(const std::string& text) {
    try {
      return Agent::PrefixList(text);
    } catch (const Mox::RangeError& error) {
      throw CLI::ValidationError(fmt::format("--subnets {}", text), error.what());
    }
  }

  void replay(CaptureFile& file) {
    const auto config = Gmp::Igmp::querierConfigFactory("capture");
    const auto intake = Mox::makePtr<Agent::IntakeConfig>("capture");
    const auto process = Mox::makePtr<Agent::IntakeProcessConfig>();
    settings_.apply({.config = config, .intake = intake, .process = process});
    if (intake_) replay_.intake = intake;
    if (intake_) replay_.process = process;
    const CaptureReplay* started = nullptr;
    const auto sinceStart = [&started](Mox::Seconds time) {
      return fmt::format("{:12.6f}", time - started->start());
    };
    const auto sink =
        json_ ? Agent::jsonEventSink(stdout) : Agent::textEventSink(stdout, sinceStart);
    CaptureReplay replay(replay_, config, settings_.boundary(), *sink);
    started = &replay;
    replay.run(file);
    const Format format = json_ ? Format::json : Format::text;
    if (format == Format::text) std::fputs("\n", stdout);
    printState(stdout, Agent::StatePart::everything, replay.interfaces(), Mox::now(), format);
    if (format == Format::text) std::fputs("\n", stdout);
    printSummary(stdout, replay.summary(), Mox::now(), format);
  }

  std::string path_;
  bool json_ = false;
  bool intake_ = false;
  std::vector<const CLI::Option*> ofCaptures_;  // those that a scenario does not have
  Agent::ReplayOptions replay_;
  Agent::ScenarioOptions scenario_;
  Agent::QuerierSettings settings_;
};

}  // namespace

std::unique_ptr<Verb> replayVerb(CLI::App& app) { return std::make_unique<ReplayVerb>(app); }

}  // namespace Igmpq
