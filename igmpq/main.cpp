// The command: finds the verb, runs it, and turns an error into a line and an exit status.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <Client/BadRequest.h>
#include <Config/ConfigFault.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>
#include <CLI/Config.hpp>
#include <CLI/Error.hpp>
#include <CLI/Formatter.hpp>

#include <Options/Options.h>
#include <Text/Printable.h>

#include "Verb.h"

namespace {

using Igmpq::Verb;

using MakeVerb = std::unique_ptr<Verb> (*)(CLI::App&);

// What an operator wants to do, and the verbs for it.
struct VerbGroup {
  const char* name;
  std::vector<MakeVerb> verbs;
};

const std::vector<VerbGroup> groups{
    {"Run", {Igmpq::runVerb, Igmpq::checkVerb, Igmpq::reloadVerb, Igmpq::storeVerb}},
    {"Look", {Igmpq::showVerb, Igmpq::watchVerb, Igmpq::getVerb, Igmpq::webVerb}},
    {"Change", {Igmpq::setVerb, Igmpq::clearVerb, Igmpq::callVerb}},
    {"Diagnose", {Igmpq::traceVerb, Igmpq::replayVerb}},
    {"For developers", {Igmpq::typesVerb}}};

// Examples come first: most readers need one of them and nothing else.
class ExamplesFirst final : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,  // NOLINT(*-naming)
                        CLI::AppFormatMode mode) const override {
    if (mode == CLI::AppFormatMode::Sub) return make_expanded(app);
    return app->get_description() + "\n\n" + app->get_footer() + "\n" + make_usage(app, name) +
           make_positionals(app) + optionsOf(app, mode) + verbsOf(app);
  }

 private:
  // Completion reads the lines of verbs by their two blanks.
  std::string verbsOf(const CLI::App* app) const {
    if (app->get_subcommands({}).empty()) return {};
    std::string text = "\nSubcommands:\n";
    for (const VerbGroup& group : groups) {
      text += fmt::format(" {}:\n", group.name);
      for (const CLI::App* verb : app->get_subcommands({})) {
        if (verb->get_group() == group.name) text += make_subcommand(verb);
      }
    }
    return text;
  }

  // The options of the intake would not fit on one screen.
  std::string optionsOf(const CLI::App* app, CLI::AppFormatMode mode) const {
    if (mode == CLI::AppFormatMode::All) return make_groups(app, mode);
    const auto shown = app->get_options([](const CLI::Option* option) {
      return option->nonpositional() && option->get_group() != Igmpq::intakeGroup;
    });
    return make_group("Options", false, shown);
  }
};

// The text may quote what another process sent.
int fail(std::string_view text, int status) {
  std::fprintf(stderr, "igmpq: %s\n", Agent::printable(text).c_str());
  return status;
}

// Our own words: line by line.
int failInLines(std::string_view lines, int status) {
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    fail(lines.substr(0, end), status);
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return status;
}

// As compilers write them, so that editors find the place.
int failInConfiguration(const Agent::ConfigError& error) {
  for (const Agent::ConfigFault& fault : error.faults()) {
    const std::string text = placeText(fault.place) + ": " + fault.what;
    std::fprintf(stderr, "%s\n", Agent::printable(text).c_str());
  }
  return Igmpq::exitBadUse;
}

// A verb's output may still be in the buffer, and it may turn out that it cannot be written.
int ended(int status) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  return fail("the output cannot be written",
              status == Igmpq::exitOk ? int{Igmpq::exitFailure} : status);
}

int runVerbOf(const std::vector<std::unique_ptr<Verb>>& verbs) {
  try {
    for (const auto& verb : verbs) {
      if (verb->chosen()) return ended(verb->run());
    }
    throw Igmpq::BadUse("a verb is missing: `igmpq --help` shows them");
  } catch (const Igmpq::BadUse& error) {
    return failInLines(error.what(), Igmpq::exitBadUse);
  } catch (const Agent::ConfigError& error) {
    return failInConfiguration(error);
  } catch (const Agent::BadRequest& error) {
    return fail(error.what(), Igmpq::exitBadUse);
  }
}

// A word where a verb belongs is meant as one.
std::string textOf(const CLI::ParseError& error, const CLI::App& app) {
  const std::vector<std::string> unknown = app.remaining();
  if (!app.get_subcommands().empty() || unknown.empty() || unknown.front().starts_with('-')) {
    return error.what();
  }
  std::vector<std::string> known;
  for (const CLI::App* verb : app.get_subcommands({})) known.push_back(verb->get_name());
  return fmt::format("there is no verb {}; there are: {}", unknown.front(), fmt::join(known, ", "));
}

// Names the help on the verb or option that was used wrongly.
std::string helpOf(const CLI::App& app) {
  const std::vector<const CLI::App*> verbs = app.get_subcommands({});
  for (const CLI::App* verb : verbs) {
    if (verb->parsed()) return "`igmpq " + verb->get_name() + " --help` lists the options";
  }
  return "`igmpq --help` shows how to use it";
}

int command(int argc, const char* const* argv) {
  CLI::App app("The router side of IGMP: queries for group members and keeps track of them.",
               "igmpq");
  app.formatter(std::make_shared<ExamplesFirst>());
  app.footer(
      "Examples:\n"
      "  sudo igmpq run --all                be a querier on all Ethernet interfaces\n"
      "  sudo igmpq run eth0 --json          on one, with JSON Lines on standard output\n"
      "  sudo igmpq run eth0 --querier-version 3 --query-interval 60\n"
      "  sudo igmpq run                      as /etc/igmpq/igmpq.toml says\n"
      "  sudo igmpq reload                   has the running one read that file again\n"
      "  sudo igmpq store                    keeps its state for the next one\n"
      "  sudo igmpq show groups              its groups\n"
      "  sudo igmpq watch                    its changes as they happen\n"
      "  sudo igmpq set eth0 query-interval=60\n"
      "  sudo igmpq get config/eth0          any attribute; `igmpq types` lists them\n"
      "  sudo igmpq call eth0 clearCounters\n"
      "  sudo igmpq clear groups eth0 239.1.1.1\n"
      "  sudo igmpq trace --follow           its trace of packets and decisions\n"
      "  igmpq replay trace.pcap --address 10.0.0.1\n"
      "                                      a querier that receives a capture\n"
      "Signals to `igmpq run`: HUP reads its files again, USR1 prints the state, INT and TERM end "
      "it.\n"
      "`igmpq VERB --help` and `man igmpq-VERB` describe each.\n"
      "Exit status: 0 ok, 1 failure, 2 bad use.\n");
  app.set_version_flag("--version", "igmpq " QUERIER_VERSION);
  try {
    std::vector<std::unique_ptr<Verb>> verbs;
    for (const VerbGroup& group : groups) {
      for (const auto make : group.verbs) {
        verbs.push_back(make(app));
        app.get_subcommands({}).back()->group(group.name);
      }
    }
    app.parse(argc, argv);
    return runVerbOf(verbs);
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    fail(textOf(error, app), Igmpq::exitBadUse);
    return fail(helpOf(app), Igmpq::exitBadUse);
  }
}

// A file that is opened later must not become standard output where that was closed.
void openStandardFiles() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", O_RDWR);  // the lowest free number
  }
}

}  // namespace

int main(int argc, char** argv) {
  openStandardFiles();
  try {
    return command(argc, argv);
  } catch (const std::exception& error) {
    return fail(error.what(), Igmpq::exitFailure);
  }
}
