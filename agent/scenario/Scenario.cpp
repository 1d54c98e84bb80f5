#include <Scenario/Scenario.h>

#include <stdlib.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include <fmt/format.h>

#include <Mox/ActivityClock.h>

#include "Step.h"
#include "World.h"

namespace Agent {

using Scenario::Json;
using Scenario::StepError;
using Scenario::World;

namespace {

class Run {
 public:
  Run(const ScenarioOptions& options, std::FILE* out, std::FILE* errors)
      : options_(options), out_(out), errors_(errors) {}

  ScenarioExit run(std::istream& lines) {
    srand48(static_cast<long>(options_.seed));
    std::string line;
    while (std::getline(lines, line)) {
      ++lineNumber_;
      if (line.find_first_not_of(" \t\r") == std::string::npos || line.front() == '#') continue;
      const ScenarioExit exit = carryOut(line);
      if (exit != scenarioOk) return exit;
    }
    if (!lines.bad()) return scenarioOk;
    ++lineNumber_;
    reportError("cannot be read; is it a file?");  // a directory opens, but gives no line
    return scenarioUnreadable;
  }

 private:
  // A line is read whole before anything that is due by its time fires.
  ScenarioExit carryOut(const std::string& line) {
    std::unique_ptr<Scenario::Step> step;
    double at = 0.0;
    try {
      const Json object = parsed(line);
      step = Scenario::readStep(object, world_.get());
      at = timeOf(object);
    } catch (const StepError& error) {
      reportError(error.what());
      return scenarioUnreadable;
    }
    if (world_ == nullptr) {
      Mox::virtualTimeIs(at);
      world_ = std::make_unique<World>(options_, out_, at);
    }
    if (!world_->advanceTo(at)) {
      world_->observations().flush();
      fmt::print(errors_, "timers never settle at {}\n", Json(Mox::now()).dump());
      return scenarioNeverSettles;
    }
    step->run(*world_);
    last_ = at;
    return scenarioOk;
  }

  static Json parsed(const std::string& line) {
    try {
      return Json::parse(line);
    } catch (const Json::exception& error) {  // a number beyond all doubles is not a parse error
      throw StepError(fmt::format("not JSON: {}", error.what()));
    }
  }

  double timeOf(const Json& object) const {
    const double at = Scenario::numberOf(object["at"], "\"at\"");
    if (world_ == nullptr && !(at > 0.0)) throw StepError("the first \"at\" must be above 0");
    if (at < last_) {
      throw StepError(fmt::format("\"at\" is {}, earlier than {} on the line before", at, last_));
    }
    return at;
  }

  // Always one line, also when a name of the step has control characters.
  void reportError(std::string what) {
    if (world_ != nullptr) world_->observations().flush();
    for (char& c : what) {
      if (static_cast<unsigned char>(c) < ' ') c = ' ';
    }
    fmt::print(errors_, "{}:{}: {}\n", options_.file, lineNumber_, what);
  }

  const ScenarioOptions& options_;
  std::FILE* out_;
  std::FILE* errors_;
  size_t lineNumber_ = 0;
  double last_ = 0.0;
  std::unique_ptr<World> world_;
};

}  // namespace

ScenarioExit runScenario(const ScenarioOptions& options, std::FILE* out, std::FILE* errors) {
  Run run(options, out, errors);
  if (options.file == "-") return run.run(std::cin);
  std::ifstream file(options.file);
  if (!file) {
    fmt::print(errors, "{}: cannot be opened; is the path right, and may you read it?\n",
               options.file);
    return scenarioUnreadable;
  }
  return run.run(file);
}

}  // namespace Agent
