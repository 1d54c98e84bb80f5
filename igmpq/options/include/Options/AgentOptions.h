// The options of `igmpq run` for the agent as a whole, one for each of Agent::agentSettings.
//
//   AgentOptions options;
//   options.addTo(app);
//   app.parse(argc, argv);
//   const Agent::AgentSettings settings = options.over(configuration.agent());
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <Settings/AgentSettings.h>
#include <CLI/App.hpp>

namespace Igmpq {

class AgentOptions {
 public:
  AgentOptions() = default;
  AgentOptions(const AgentOptions&) = delete;
  AgentOptions& operator=(const AgentOptions&) = delete;

  // Must outlive the parse.
  void addTo(CLI::App& app);
  // The settings with those that the command line gives in their place.
  Agent::AgentSettings over(Agent::AgentSettings settings) const;

 private:
  void take(const Agent::AgentSetting& setting, const std::string& text);

  std::vector<std::pair<const Agent::AgentSetting*, std::string>> given_;
};

}  // namespace Igmpq
