#include "ConfigPlan.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Settings/SettingText.h>

namespace Agent {

using Mox::AttrInfo;
using Mox::EntityBase;

namespace {

std::string boundaryText(const std::set<Ilvo::IpGenPrefix>& prefixes) {
  std::vector<std::string> texts;
  texts.reserve(prefixes.size());
  for (const Ilvo::IpGenPrefix& prefix : prefixes) texts.push_back(prefix.stringValue());
  return texts.empty() ? "none" : fmt::to_string(fmt::join(texts, ","));
}

std::string agentText(const AgentSettings& settings, const AgentSetting& setting) {
  std::string text = agentSettingText(settings, setting);
  if (!text.empty()) return text;
  return setting.unset[0] == '\0' ? "as usual" : setting.unset;
}

void copySetting(const AgentSettings& from, AgentSettings& to, const AgentSetting& setting) {
  std::visit([&](auto member) { to.*member = from.*member; }, setting.member);
}

class Planner {
 public:
  Planner(const ConfiguredAgent& current, ConfiguredAgent next, const PresentAgent& present)
      : current_(current), present_(present) {
    plan_.after = std::move(next);
  }

  ConfigPlan plan() {
    planAgent();
    planInterfaces();
    if (!faults_.empty()) throw ConfigError(std::move(faults_));
    return std::move(plan_);
  }

 private:
  void planAgent() {
    ConfiguredAgent& after = plan_.after;
    for (const AgentSetting& setting : agentSettings) {
      ConfigChange change{.kind = ConfigChange::changed,
                          .setting = std::string(setting.name),
                          .before = agentText(current_.agent, setting),
                          .after = agentText(after.agent, setting),
                          .origin = originText(originOf(after.origins, setting.name))};
      if (change.before == change.after) continue;
      if (setting.atStart || (setting.name == "socket" && !present_.canServeElsewhere)) {
        change.kind = ConfigChange::needsRestart;
        copySetting(current_.agent, after.agent, setting);
        keepOrigin(setting.name);
      }
      plan_.changes.push_back(std::move(change));
    }
    plan_.process = changedValues("", current_.values.process, after.values.process,
                                  present_.entitiesOf("").process, after.origins);
  }

  void keepOrigin(std::string_view setting) {
    const std::string key(setting);
    plan_.after.origins.insert_or_assign(key, originOf(current_.origins, key));
  }

  void planInterfaces() {
    const auto& interfaces = plan_.after.interfaces;
    for (const std::string& name : current_.names) {
      if (interfaces.contains(name)) continue;
      plan_.removed.push_back(name);
      plan_.changes.push_back({.kind = ConfigChange::removed, .interface = name});
    }
    for (const std::string& name : plan_.after.names) {
      const auto was = current_.interfaces.find(name);
      if (was != current_.interfaces.end()) {
        planInterface(was->second, interfaces.at(name));
      } else {
        plan_.added.push_back(name);
        plan_.changes.push_back({.kind = ConfigChange::added, .interface = name});
      }
    }
  }

  void planInterface(const ConfiguredInterface& was, const ConfiguredInterface& wanted) {
    const SettingEntities present = present_.entitiesOf(wanted.name);
    ConfigPlan::Interface change{.name = wanted.name};
    change.querier = changedValues(wanted.name, was.values.config, wanted.values.config,
                                   present.config, wanted.origins);
    change.intake = changedValues(wanted.name, was.values.intake, wanted.values.intake,
                                  present.intake, wanted.origins);
    change.isBoundaryChanged = was.boundary != wanted.boundary;
    if (change.isBoundaryChanged) {
      plan_.changes.push_back({.kind = ConfigChange::changed,
                               .interface = wanted.name,
                               .setting = boundaryKey,
                               .before = boundaryText(was.boundary),
                               .after = boundaryText(wanted.boundary),
                               .origin = originText(originOf(wanted.origins, boundaryKey))});
    }
    for (ConfigFault& fault : contradictionsOf(wanted, *present.config, change.querier)) {
      fault.what += "; a value that it contradicts was set at run time";
      faults_.push_back(std::move(fault));
    }
    const bool isChanged =
        change.isBoundaryChanged || !change.querier.empty() || !change.intake.empty();
    if (isChanged) plan_.changed.push_back(std::move(change));
  }

  ConfigPlan::Values changedValues(const std::string& interface,
                                   const Mox::Ptr<const EntityBase>& was,
                                   const Mox::Ptr<const EntityBase>& wanted,
                                   const Mox::Ptr<const EntityBase>& present,
                                   const SettingOrigins& origins) {
    ConfigPlan::Values values;
    for (const AttrInfo& attr : wanted->type().attrs) {
      if (attr.set == nullptr) continue;
      const Mox::Value value = attr.get(*wanted);
      const Mox::Value before = attr.get(*present);
      if (value == attr.get(*was) || value == before) continue;
      values.push_back({&attr, value});
      plan_.changes.push_back({.kind = ConfigChange::changed,
                               .interface = interface,
                               .setting = settingKey(attr.name),
                               .before = settingValueText(before),
                               .after = settingValueText(value),
                               .origin = originText(originOf(origins, attr.name))});
    }
    return values;
  }

  const ConfiguredAgent& current_;
  const PresentAgent& present_;
  ConfigPlan plan_;
  std::vector<ConfigFault> faults_;
};

std::string camelCase(std::string_view key) {
  std::string text;
  bool upper = false;
  for (const char c : key) {
    if (c != '-') text += upper ? static_cast<char>(c - 'a' + 'A') : c;
    upper = c == '-';
  }
  return text;
}

// A text has one form for people and programs: "all", or prefixes.
ShownSetting shown(const AttrInfo& attr, const Mox::Value& value, std::string origin) {
  const bool isSeconds = attr.value == Mox::ValueKind::seconds;
  ShownSetting setting{.key = std::string(attr.name) + (isSeconds ? "Seconds" : ""),
                       .name = attr.name,
                       .value = value,
                       .text = settingValueText(value),
                       .origin = std::move(origin)};
  if (std::holds_alternative<std::string>(value)) setting.value = setting.text;
  return setting;
}

void addSettings(std::vector<ShownSetting>& to, const EntityBase& configured,
                 const EntityBase& present, const SettingOrigins& origins) {
  for (const AttrInfo& attr : present.type().attrs) {
    const bool isSetting = attr.set != nullptr;
    if (!isSetting && attr.kind != Mox::AttrKind::derived) continue;
    const Mox::Value value = attr.get(present);
    SettingOrigin origin = originOf(origins, attr.name);
    if (value != attr.get(configured)) origin = {.from = SettingOrigin::runTime};
    to.push_back(shown(attr, value, isSetting ? originText(origin) : ""));
  }
}

ShownSetting shown(const AgentSettings& settings, const AgentSetting& setting, std::string origin) {
  ShownSetting result{.key = camelCase(setting.name),
                      .name = std::string(setting.name),
                      .value = {},
                      .text = agentText(settings, setting),
                      .origin = std::move(origin)};
  const auto take = [&](auto member) {
    const auto& value = settings.*member;
    using V = std::remove_cvref_t<decltype(value)>;
    if constexpr (std::is_same_v<V, std::optional<Mox::U64>>) {
      if (value) result.value = *value;
    } else {
      result.value = value;
    }
    if constexpr (std::is_same_v<V, Mox::Seconds>) {
      result.key += "Seconds";
      result.text += 's';
    }
  };
  std::visit(take, setting.member);
  return result;
}

}  // namespace

ConfigPlan configPlan(const ConfiguredAgent& current, ConfiguredAgent next,
                      const PresentAgent& present) {
  return Planner(current, std::move(next), present).plan();
}

std::vector<ShownSetting> shownSettings(const ConfiguredInterface& configured,
                                        const SettingEntities& present) {
  std::vector<ShownSetting> settings;
  addSettings(settings, *configured.values.config, *present.config, configured.origins);
  addSettings(settings, *configured.values.intake, *present.intake, configured.origins);
  const std::string boundary = boundaryText(configured.boundary);
  settings.push_back({.key = boundaryKey,
                      .name = boundaryKey,
                      .value = boundary,
                      .text = boundary,
                      .origin = originText(originOf(configured.origins, boundaryKey))});
  return settings;
}

std::vector<ShownSetting> shownSettings(const ConfiguredAgent& configured,
                                        const SettingEntities& present) {
  std::vector<ShownSetting> settings;
  settings.reserve(agentSettings.size());
  for (const AgentSetting& setting : agentSettings) {
    settings.push_back(
        shown(configured.agent, setting, originText(originOf(configured.origins, setting.name))));
  }
  addSettings(settings, *configured.values.process, *present.process, configured.origins);
  return settings;
}

Mox::Ptr<Ilvo::IntfBoundaryStatus> boundaryOf(const ConfiguredInterface& interface) {
  if (interface.boundary.empty()) return nullptr;
  auto boundary = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  for (const Ilvo::IpGenPrefix& prefix : interface.boundary) boundary->boundaryIs(prefix, true);
  return boundary;
}

}  // namespace Agent
