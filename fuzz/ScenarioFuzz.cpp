// Any text is safe to run as a scenario. Two runs give the same output, errors and exit status. The
// exit status shows whether the whole text was run; if not, one line says why.
//
// The first line can hold options, as in test/scenarios; --traces takes effect here.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <Scenario/Scenario.h>

#include "MemoryFile.h"
#include "Property.h"

namespace {

using Fuzz::property;

struct Outcome {
  Agent::ScenarioExit exit;
  std::string output;
  std::string errors;
  bool operator==(const Outcome&) const = default;
};

Outcome outcomeOf(const Agent::ScenarioOptions& options) {
  const Fuzz::MemoryOutput output;
  const Fuzz::MemoryOutput errors;
  const Agent::ScenarioExit exit = runScenario(options, output.stream(), errors.stream());
  return {exit, output.text(), errors.text()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string_view firstLine = text.substr(0, text.find('\n'));
  const Fuzz::MemoryFile file({data, size});
  const Agent::ScenarioOptions options{
      .file = file.path(),
      .changes = true,
      .traces = firstLine.find("--traces") != std::string_view::npos,
      .turnsMost = 2000,
  };
  const Outcome first = outcomeOf(options);
  property(first.exit == Agent::scenarioOk || first.exit == Agent::scenarioUnreadable ||
               first.exit == Agent::scenarioNeverSettles,
           "the exit status is a documented one");
  const auto lines = std::count(first.errors.begin(), first.errors.end(), '\n');
  property(lines == (first.exit == Agent::scenarioOk ? 0 : 1), "a failure says why in one line");
  property(first.output.empty() || first.output.back() == '\n',
           "the output consists of whole lines");
  property(outcomeOf(options) == first, "the second run is like the first");
  return 0;
}
