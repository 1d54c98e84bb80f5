#include <Client/SettingWrite.h>

#include <algorithm>
#include <cmath>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Settings/ConfigWrites.h>
#include <Settings/SettingEntities.h>
#include <Settings/SettingError.h>
#include <Settings/SettingText.h>

namespace Agent {

using Gmp::Igmp::QuerierStatus;
using Mox::AttrInfo;
using Mox::Value;
using Mox::NboAttrLog::Written;

namespace {

// Whether a name is that of the attribute, or that of its option with or without the dashes.
bool isNamed(std::string_view attribute, std::string_view name) {
  const std::string option = optionName(attribute);
  return name == attribute || name == option || name == std::string_view(option).substr(2);
}

SettingEntities entitiesOf(const AttrLogCopy::Interface& interface) {
  return {.config = interface.config, .intake = interface.intake, .process = interface.process};
}

const AttrInfo* statusAttr(const AttrInfo& attr) {
  const AttrInfo* shown = Mox::typeInfoOf<QuerierStatus>().attr(std::string_view(attr.name));
  return shown != nullptr && shown->kind == Mox::AttrKind::stored ? shown : nullptr;
}

std::string notInEffectText(const QuerierStatus& status) {
  if (status.state() != QuerierStatus::querierStateNonQuerier) {
    return "set; not in effect while no querier runs on the interface";
  }
  // A querier that may not send queries any more has no other querier to wait for.
  if (std::isinf(status.otherQuerierExpiryTime())) {
    return "set; not in effect while sendQuery is off";
  }
  return fmt::format("set; not in effect while {} is querier",
                     status.electedQuerierAddr().stringValue());
}

// 0 stands for a quarter of the query interval at the moment when the querier applies it.
bool isStartupPart(const AttrInfo& attr, const Value& value) {
  return attr.name == std::string_view("startupQueryInterval") && value == Value(0.0);
}

// A querier whose setting was 0 before is not notified, and keeps a quarter of an older interval.
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

std::string outcomeOf(const Written& setting, const AttrLogCopy::Interface& interface) {
  // Another writer may have written it since.
  const auto owner = entitiesOf(interface).ownerOf(*setting.attr);
  if (setting.attr->get(*owner) != setting.value) return "set, and changed again since";
  const AttrInfo* shown = statusAttr(*setting.attr);
  if (shown == nullptr) return "set";
  if (isStartupPart(*setting.attr, setting.value)) return startupPartText(interface);
  const Value effective = shown->get(*interface.status);
  return effective == setting.value ? "in effect" : notInEffectText(*interface.status);
}

}  // namespace

void SettingWrite::add(std::string_view assignment) {
  const size_t equals = assignment.find('=');
  if (equals == std::string_view::npos) {
    throw SettingError(std::string(assignment), {},
                       "must be ATTRIBUTE=VALUE, such as queryInterval=60");
  }
  const std::string name(assignment.substr(0, equals));
  const std::vector<std::string_view> names = settingNames();
  const auto attribute =
      std::ranges::find_if(names, [&](std::string_view each) { return isNamed(each, name); });
  if (attribute == names.end()) {
    throw SettingError(
        name, {}, fmt::format("there is no such setting; there are: {}", fmt::join(names, ", ")));
  }
  const std::string text(assignment.substr(equals + 1));
  const Written setting = readSetting(*attribute, name, text);
  const bool twice = std::ranges::any_of(
      settings_, [&](const Written& other) { return other.attr == setting.attr; });
  if (twice && !isNamed(setting.attr->name, name)) {
    throw SettingError(name, {}, fmt::format("gives {} a second value", setting.attr->name));
  }
  if (twice) throw SettingError(name, {}, "is given twice");
  settings_.push_back(setting);
  const bool seconds = setting.attr->value == Mox::ValueKind::seconds;
  texts_.push_back(fmt::format("{} {}{}", *attribute, text, seconds ? " s" : ""));
}

void SettingWrite::checkAgainst(const AttrLogCopy::Interface& interface) const {
  const SettingEntities entities = entitiesOf(interface);
  std::vector<Written> ofQuerier;
  for (size_t at = 0; at < settings_.size(); ++at) {
    const auto owner = entities.ownerOf(*settings_[at].attr);
    if (!owner) throw SettingError(texts_[at], {}, "this agent has no such setting");
    if (owner == interface.config) ofQuerier.push_back(settings_[at]);
  }
  const auto error = settingErrorOf(*interface.config, ofQuerier);
  if (error) throw SettingError(*error);
}

void SettingWrite::write(const AttrLogCopy::Interface& interface) const {
  for (const Written& setting : settings_) entitiesOf(interface).set(setting);
}

std::vector<std::string> SettingWrite::outcome(const AttrLogCopy::Interface& interface) const {
  std::vector<std::string> lines;
  for (size_t at = 0; at < settings_.size(); ++at) {
    lines.push_back(fmt::format("{}: {}", texts_[at], outcomeOf(settings_[at], interface)));
  }
  return lines;
}

}  // namespace Agent
