#include <Client/SettingWrite.h>

#include <algorithm>
#include <cmath>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Settings/QuerierSettings.h>

#include <Settings/SettingText.h>

namespace Agent {

using Gmp::Igmp::QuerierConfig;
using Gmp::Igmp::QuerierStatus;
using Mox::AttrInfo;
using Mox::Ptr;
using Mox::Value;

namespace {

// As in the attribute table, or as the option that sets it.
bool isNamed(std::string_view attribute, std::string_view name) {
  const std::string option = optionName(attribute);
  return name == attribute || name == option || name == std::string_view(option).substr(2);
}

// The attribute of that name with its value; null for none.
const AttrInfo* readSetting(std::string_view name, std::string_view text, Value& value) {
  const AttrInfo* found = nullptr;
  QuerierConfig::attributes.forEach([&](Mox::AttrId id, const auto& row) {
    if constexpr (isSetting<decltype(row)>) {
      if (!isNamed(row.name, name)) return;
      using V = std::remove_cvref_t<decltype(std::declval<QuerierConfig&>().*row.member)>;
      value = Mox::valueFrom(settingOf<V>(name, *settingRule(row.name), text));
      found = Mox::typeInfoOf<QuerierConfig>().attr(id);
    }
  });
  return found;
}

const AttrInfo* statusAttr(const AttrInfo& attr) {
  const AttrInfo* shown = Mox::typeInfoOf<QuerierStatus>().attr(std::string_view(attr.name));
  return shown != nullptr && shown->kind == Mox::AttrKind::stored ? shown : nullptr;
}

std::string notInEffectText(const QuerierStatus& status) {
  if (status.state() != QuerierStatus::querierStateNonQuerier) {
    return "set; not in effect while no querier runs on the interface";
  }
  // Who was the querier and may not ask any more waits for nobody.
  if (std::isinf(status.otherQuerierExpiryTime())) {
    return "set; not in effect while sendQuery is off";
  }
  return fmt::format("set; not in effect while {} is querier",
                     status.electedQuerierAddr().stringValue());
}

// 0 stands for a part of what the query interval is when the querier takes it over.
bool isStartupPart(const AttrInfo& attr, const Value& value) {
  return attr.name == std::string_view("startupQueryInterval") && value == Value(0.0);
}

// A querier that had the 0 already is not told of it again, and keeps a part of an older interval.
std::string startupPartText(const AttrLogCopy::Interface& interface) {
  const Mox::Seconds effective = interface.status->startupQueryInterval();
  if (effective == 0.25 * interface.config->queryInterval()) {
    return fmt::format("in effect: {} s, a quarter of the query interval", effective);
  }
  if (interface.status->state() == QuerierStatus::querierStateInitial) {
    return notInEffectText(*interface.status);
  }
  return fmt::format("set; {} s is in effect until the querier starts again", effective);
}

}  // namespace

std::vector<std::string> SettingWrite::names() {
  std::vector<std::string> all;
  all.reserve(settingRules.size());
  for (const SettingRule& rule : settingRules) all.emplace_back(rule.attribute);
  return all;
}

void SettingWrite::add(std::string_view assignment) {
  const size_t equals = assignment.find('=');
  if (equals == std::string_view::npos) {
    throw CLI::ValidationError(std::string(assignment),
                               "must be ATTRIBUTE=VALUE, such as queryInterval=60");
  }
  const std::string_view name = assignment.substr(0, equals);
  Setting setting{.attr = nullptr, .text = std::string(assignment.substr(equals + 1)), .value = {}};
  setting.attr = readSetting(name, setting.text, setting.value);
  if (setting.attr == nullptr) {
    throw CLI::ValidationError(
        std::string(name),
        fmt::format("there is no such setting; there are: {}", fmt::join(names(), ", ")));
  }
  const bool twice = std::ranges::any_of(
      settings_, [&](const Setting& other) { return other.attr == setting.attr; });
  if (twice) throw CLI::ValidationError(std::string(name), "is given twice");
  settings_.push_back(std::move(setting));
}

void SettingWrite::checkAgainst(const QuerierConfig& config) const {
  const Ptr<QuerierConfig> after = copyOf(config);
  std::set<std::string_view> given;
  for (const Setting& setting : settings_) {
    writeOne(*after, setting);
    given.insert(setting.attr->name);
  }
  const auto found = contradictionOf(*after, given);
  if (!found) return;
  throw CLI::ValidationError(fmt::format("{} {}", found->attribute, found->value), found->why);
}

void SettingWrite::writeOne(QuerierConfig& config, const Setting& setting) {
  setting.attr->set(config, setting.value);
}

void SettingWrite::write(QuerierConfig& config) const {
  std::vector<Setting> left = settings_;
  // What stands for a part of the query interval comes after the interval that it is a part of.
  std::stable_partition(left.begin(), left.end(), [](const Setting& setting) {
    return !isStartupPart(*setting.attr, setting.value);
  });
  while (!left.empty()) {
    auto next = std::ranges::find_if(left, [&](const Setting& setting) {
      const Ptr<QuerierConfig> after = copyOf(config);
      writeOne(*after, setting);
      return !contradictionOf(*after, {});
    });
    if (next == left.end()) next = left.begin();
    writeOne(config, *next);
    left.erase(next);
  }
}

std::vector<std::string> SettingWrite::outcome(const AttrLogCopy::Interface& interface) const {
  std::vector<std::string> lines;
  for (const Setting& setting : settings_) {
    const bool seconds = setting.attr->value == Mox::ValueKind::seconds;
    lines.push_back(fmt::format("{} {}{}: {}", setting.attr->name, setting.text,
                                seconds ? " s" : "", outcomeOf(setting, interface)));
  }
  return lines;
}

std::string SettingWrite::outcomeOf(const Setting& setting,
                                    const AttrLogCopy::Interface& interface) {
  // Another one may have written it since.
  if (setting.attr->get(*interface.config) != setting.value) return "set, and changed again since";
  const AttrInfo* shown = statusAttr(*setting.attr);
  if (shown == nullptr) return "set";
  const Value effective = shown->get(*interface.status);
  if (isStartupPart(*setting.attr, setting.value)) return startupPartText(interface);
  return effective == setting.value ? "in effect" : notInEffectText(*interface.status);
}

}  // namespace Agent
