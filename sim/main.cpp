// The command `sim`: runs worlds from seeds, or one story; see README.md.
#include <getopt.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

#include <Mox/EventLog.h>

#include "Reduce.h"
#include "Report.h"
#include "World.h"

namespace {

using Sim::Breach;
using Sim::Canary;
using Sim::Counts;
using Sim::Findings;
using Sim::Story;
using Sim::World;

constexpr const char* usage =
    "usage: sim [--seed S] [--seconds N | --worlds N] [--canary NAME] [--story FILE] [--log]\n"
    "\n"
    "  sim --seconds 30             worlds from the seeds 1, 2, ... for 30 seconds\n"
    "  sim --seed 7 --worlds 1      the world of one seed\n"
    "  sim --kills --seconds 30     worlds whose routers are killed and begin on kept state\n"
    "  sim --story FILE --log       a story, with all that happens; - for standard input\n"
    "  sim --canary muteHost        with a fault that an invariant must find\n"
    "  sim --canary list            the names of these faults\n"
    "\n"
    "A story that breaks an invariant is shortened and printed, from its line \"seed\" to a blank\n"
    "line: --story repeats it from these lines, with the same --canary if there was one.\n"
    "Exit status 0 when all held, 1 when one was broken, 2 for a wrong command line or story.\n"
    "With --canary and without --story it is 0 when the invariant of that fault is broken, and\n"
    "no other.\n";

struct Options {
  Sim::U64 seed = 1;
  double seconds = 0.0;
  Sim::U64 worlds = 0;
  Canary canary = Canary::none;
  std::string story = {};
  bool log = false;
  bool kills = false;

  Story makeStory(Sim::U64 number) const {
    return kills ? Sim::makeKillStory(number) : Sim::makeStory(number);
  }
};

[[noreturn]] void refuse(const std::string& why) {
  std::cerr << "sim: " << why << "\n" << usage;
  std::exit(2);
}

Canary canaryOf(const std::string& name) {
  for (const Sim::CanaryName& each : Sim::canaries) {
    if (name == each.name) return each.canary;
  }
  if (name != "list") refuse("no such fault: " + name);
  for (const Sim::CanaryName& each : Sim::canaries) std::cout << each.name << "\n";
  std::exit(0);
}

Options optionsOf(int argc, char** argv) {
  constexpr option names[] = {{"seed", required_argument, nullptr, 's'},
                              {"seconds", required_argument, nullptr, 't'},
                              {"worlds", required_argument, nullptr, 'w'},
                              {"canary", required_argument, nullptr, 'c'},
                              {"story", required_argument, nullptr, 'f'},
                              {"log", no_argument, nullptr, 'l'},
                              {"kills", no_argument, nullptr, 'k'},
                              {"help", no_argument, nullptr, 'h'},
                              {nullptr, 0, nullptr, 0}};
  Options options;
  for (int name; (name = getopt_long(argc, argv, "h", names, nullptr)) != -1;) {
    switch (name) {
      case 's': options.seed = std::stoull(optarg); break;
      case 't': options.seconds = std::stod(optarg); break;
      case 'w': options.worlds = std::stoull(optarg); break;
      case 'c': options.canary = canaryOf(optarg); break;
      case 'f': options.story = optarg; break;
      case 'l': options.log = true; break;
      case 'k': options.kills = true; break;
      case 'h': std::cout << usage; std::exit(0);
      default: std::cerr << usage; std::exit(2);
    }
  }
  if (optind != argc) refuse("one argument too many");
  if (options.worlds == 0) options.worlds = options.seconds > 0 ? ~Sim::U64{0} : 1000;
  return options;
}

Story readStory(const std::string& path) {
  std::ifstream file;
  if (path != "-") file.open(path);
  std::istream& in = path == "-" ? std::cin : file;
  if (!in) refuse(path + " cannot be read");
  return Sim::storyOf({std::istreambuf_iterator<char>(in), {}});
}

Findings run(const Story& story, const Options& options) {
  World world(story, options.canary);
  if (options.log) world.log = [](const std::string& line) { std::cout << line << "\n"; };
  return world.run();
}

// The heading is a comment of the story.
void print(const Story& story, const Breach& breach, Canary canary) {
  std::cout << "# seed " << story.seed << ": " << textOf(breach) << "\n\n"
            << textOf(Sim::reduced(story, breach.invariant, canary)) << "\n"
            << std::flush;
}

int runStory(const Options& options) {
  const Findings found = run(readStory(options.story), options);
  if (found.breach) std::cout << textOf(*found.breach) << "\n";
  std::cout << textOf(found.counts);
  return found.breach ? 1 : 0;
}

// Only the first broken invariant is shown in full.
int runSeeds(const Options& options) {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  const auto passed = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
  Counts counts;
  unsigned broken = 0;
  for (Sim::U64 at = 0; at < options.worlds; ++at) {
    if (options.seconds > 0 && passed() > options.seconds) break;
    const Story story = options.makeStory(options.seed + at);
    const Findings found = run(story, options);
    counts.add(found.counts);
    if (!found.breach) continue;
    if (++broken == 1) {
      print(story, *found.breach, options.canary);
    } else {
      std::cout << "seed " << story.seed << ": " << textOf(*found.breach) << "\n" << std::flush;
    }
  }
  std::cout << textOf(counts) << "broken " << broken << ", worlds a second "
            << static_cast<long>(static_cast<double>(counts.worlds) / passed()) << "\n";
  return broken == 0 ? 0 : 1;
}

// Until its invariant has found it. No other may.
int runCanary(const Options& options) {
  const auto* canary = Sim::canaries.begin();
  while (canary->canary != options.canary) ++canary;
  for (Sim::U64 at = 0; at < options.worlds; ++at) {
    const Story story = options.makeStory(options.seed + at);
    const Findings found = run(story, options);
    if (!found.breach) continue;
    print(story, *found.breach, options.canary);
    return found.breach->invariant == canary->finds ? 0 : 1;
  }
  std::cout << canary->name << " was not found in " << options.worlds << " worlds\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  Mox::eventLogSinkIs([](const Mox::EventLogEntry&) {});
  try {
    const Options options = optionsOf(argc, argv);
    if (!options.story.empty()) return runStory(options);
    return options.canary == Canary::none ? runSeeds(options) : runCanary(options);
  } catch (const std::exception& error) {
    std::cerr << "sim: " << error.what() << "\n";
    return 2;
  }
}
