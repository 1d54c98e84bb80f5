// The options of `igmpq run` for the agent as a whole, one for each of Agent::agentSettings.
//
//   AgentOptions options;
//   options.addTo(app);
//   app.parse(argc, argv);
//   for (const auto& [setting, text] : options.given()) ...
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
  // The values that the command line gives; each can be set.
  using Given = std::vector<std::pair<const Agent::AgentSetting*, std::string>>;
  const Given& given() const { return given_; }

 private:
  void take(const Agent::AgentSetting& setting, const std::string& text);

  Given given_;
};

}  // namespace Igmpq
