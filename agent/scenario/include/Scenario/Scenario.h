// Runs a scenario: timed steps in, timed observations out, both JSON Lines, in virtual time.
//
// The same file gives the same output on every run. Queriers, timers, packets and the attribute-log
// socket are real; only the clock is virtual. doc/scenario-format.md describes steps and
// observations.
//
//   Agent::ScenarioOptions options{.file = "join.scenario", .changes = true};
//   return Agent::runScenario(options, stdin, stdout, stderr);
#pragma once

#include <cstddef>
#include <cstdio>
#include <limits>
#include <string>

namespace Agent {

struct ScenarioOptions {
  std::string file;  // "-" for standard input
  unsigned seed = 0;
  bool changes = false;
  bool traces = false;
  // Limits the work, for callers such as a fuzz target: a run that turns its timer wheel more often
  // than this counts as one whose timers never settle.
  std::size_t turnsMost = std::numeric_limits<std::size_t>::max();
};

enum ScenarioExit {
  scenarioOk = 0,
  scenarioUnreadable = 2,  // a step, or the file
  scenarioNeverSettles = 3,
};

ScenarioExit runScenario(const ScenarioOptions& options, std::FILE* out, std::FILE* errors);

}  // namespace Agent
