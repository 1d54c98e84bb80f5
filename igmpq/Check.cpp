// `igmpq check [FILE]`: reads the configuration without an agent.
#include <cstdio>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Config/ConfigExample.h>
#include <Config/ConfigPath.h>
#include <Config/Configuration.h>
#include <Link/LinkMonitor.h>
#include <Text/Printable.h>

#include "Interfaces.h"
#include "Verb.h"

namespace Igmpq {

namespace {

// A querier waits for one that is not there, so that a wrong name is no fault.
std::string shownName(const Agent::LinkTable& links, const std::string& name) {
  const Agent::Link* link = links.find(name);
  if (link == nullptr) return name + " (not there now)";
  const std::string unfit = whyUnfit(*link);
  return unfit.empty() ? name : fmt::format("{} ({})", name, unfit);
}

class CheckVerb final : public Verb {
 public:
  explicit CheckVerb(CLI::App& app)
      : CheckVerb(app.add_subcommand("check", "Check a configuration file")) {}

  int run() override {
    if (example_) {
      std::fputs(Agent::configExample().c_str(), stdout);
      return exitOk;
    }
    const auto configuration = Agent::Configuration::read(file_);
    const Agent::LinkTable links = Agent::currentLinks();
    std::vector<std::string> names;
    for (const std::string& name : configuration.interfacesAmong(fitNames(links))) {
      names.push_back(shownName(links, name));
    }
    const std::string interfaces = !configuration.namesInterfaces()
                                       ? "no interface: `igmpq run` needs an [[interface]]"
                                   : names.empty() ? "no interface of this machine"
                                                   : fmt::to_string(fmt::join(names, ", "));
    fmt::print("{}: no fault; for {}\n", Agent::printable(file_), Agent::printable(interfaces));
    return exitOk;
  }

 private:
  explicit CheckVerb(CLI::App* options) : Verb(options) {
    options->footer(
        "Examples:\n"
        "  igmpq check                        the file of the service\n"
        "  igmpq check new.toml\n"
        "  igmpq check --example > new.toml   a file with every key, its range and default\n"
        "It reads the files conf.d/*.toml beside that file, too, and needs no agent.\n"
        "Exit status: 0 no fault, 1 failure, 2 a fault, written as FILE:LINE:COLUMN: what is "
        "wrong.\n");
    options->add_option("FILE", file_, "the configuration")
        ->type_name("")
        ->option_text("[FILE=" + file_ + "]");
    options->add_flag("--example", example_, "print a file that lists every key");
  }

  std::string file_ = Agent::usualConfigPath;
  bool example_ = false;
};

}  // namespace

std::unique_ptr<Verb> checkVerb(CLI::App& app) { return std::make_unique<CheckVerb>(app); }

}  // namespace Igmpq
