// What a configuration that was read again changes in a running agent, before anything is changed.
//
// A value changes where the configuration gives another one than when it was last read; so a value
// that was set at run time stays as long as the configuration says the same as before.
//
//   const ConfigPlan plan = configPlan(configured, next, {.entitiesOf = ...});
//   for (const ConfigPlan::Interface& interface : plan.changed) ...
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Config/ConfiguredAgent.h>
#include <Ilvo/IntfBoundaryStatus.h>
#include <MoxBase/Ptr.h>
#include <NboAttrLog/TreeIn.h>
#include <Server/ConfigServices.h>

namespace Agent {

struct ConfigPlan {
  using Values = std::vector<Mox::NboAttrLog::Written>;

  struct Interface {
    std::string name;
    Values querier = {};
    Values intake = {};
    bool isBoundaryChanged = false;
  };

  std::vector<std::string> added;
  std::vector<std::string> removed;
  std::vector<Interface> changed;
  Values process;
  std::vector<ConfigChange> changes;  // all of this in words
  // What holds afterwards: settings that need a restart are as before.
  ConfiguredAgent after;
};

// The agent that runs.
struct PresentAgent {
  // Of an interface, or of the agent as a whole for an empty name.
  std::function<SettingEntities(const std::string& interface)> entitiesOf;
  bool canServeElsewhere = false;  // at another socket, without a restart
};

// Throws ConfigError for values that contradict others that were set at run time.
ConfigPlan configPlan(const ConfiguredAgent& current, ConfiguredAgent next,
                      const PresentAgent& present);

// The settings that hold, each with its origin: a value that differs from that of the configuration
// was set at run time.
std::vector<ShownSetting> shownSettings(const ConfiguredInterface& configured,
                                        const SettingEntities& present);
std::vector<ShownSetting> shownSettings(const ConfiguredAgent& configured,
                                        const SettingEntities& present);

// Null for a boundary without prefixes.
Mox::Ptr<Ilvo::IntfBoundaryStatus> boundaryOf(const ConfiguredInterface& interface);

}  // namespace Agent
