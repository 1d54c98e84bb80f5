#include <Intake/IntakeSettings.h>

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/PrefixList.h>
#include <Mox/Errors.h>

namespace Agent {

using Mox::U64;
using Mox::Value;

namespace {

constexpr std::string_view noRestriction = "all";

template <class E>
consteval size_t settingsOf() {
  size_t settings = 0;
  E::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (std::remove_cvref_t<decltype(row)>::kind == Mox::AttrKind::stored) {
      bool found = false;
      for (const auto& setting : intakeSettings) found = found || setting.attribute == row.name;
      if (found) ++settings;
    }
  });
  return settings;
}
// Each setting has one row, and each row a setting.
static_assert(settingsOf<IntakeConfig>() == decltype(IntakeConfig::attributes)::size - 1);
static_assert(settingsOf<IntakeProcessConfig>() ==
              decltype(IntakeProcessConfig::attributes)::size - 1);
static_assert(settingsOf<IntakeConfig>() + settingsOf<IntakeProcessConfig>() ==
              intakeSettings.size());

Value numberOf(const IntakeSetting& setting, std::string_view text) {
  U64 number = 0;
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  if (read.ec != std::errc() || read.ptr != end || number < setting.least ||
      number > setting.most) {
    throw Mox::RangeError(mustText(setting));
  }
  return number;
}

}  // namespace

std::string intakeText(const IntakeSetting& setting, const Value& value) {
  switch (setting.value) {
    case IntakeValue::flag: return std::get<bool>(value) ? "on" : "off";
    case IntakeValue::number: return fmt::to_string(std::get<U64>(value));
    case IntakeValue::prefixes: break;
  }
  const std::string& list = std::get<std::string>(value);
  return list.empty() ? std::string(noRestriction) : list;
}

const IntakeSetting* intakeSetting(std::string_view attribute) {
  const auto found = std::find_if(intakeSettings.begin(), intakeSettings.end(),
                                  [&](const auto& row) { return row.attribute == attribute; });
  return found == intakeSettings.end() ? nullptr : &*found;
}

std::string mustText(const IntakeSetting& setting) {
  switch (setting.value) {
    case IntakeValue::flag: return "must be on or off";
    case IntakeValue::number:
      return fmt::format("must be a whole number from {} to {}", setting.least, setting.most);
    case IntakeValue::prefixes:
      return "must be IPv4 prefixes between commas, or all for no restriction";
  }
  return {};
}

Value intakeValueOf(const IntakeSetting& setting, std::string_view text) {
  switch (setting.value) {
    case IntakeValue::flag:
      if (text == "on") return true;
      if (text == "off") return false;
      throw Mox::RangeError(mustText(setting));
    case IntakeValue::number: return numberOf(setting, text);
    case IntakeValue::prefixes:
      if (text == noRestriction) return std::string();
      if (text.empty()) throw Mox::RangeError(mustText(setting));
      return PrefixList(text).string();
  }
  return {};
}

std::optional<std::string> refusalReason(const Mox::AttrInfo& attr, const Value& value) {
  const IntakeSetting* setting = intakeSetting(attr.name);
  if (setting == nullptr) return "cannot be set";
  if (setting->value == IntakeValue::number) {
    const U64* number = std::get_if<U64>(&value);
    if (number != nullptr && *number >= setting->least && *number <= setting->most) return {};
    return mustText(*setting);
  }
  if (setting->value == IntakeValue::prefixes) {
    const auto* text = std::get_if<std::string>(&value);
    if (text == nullptr) return mustText(*setting);
    try {
      const PrefixList list(*text);
    } catch (const Mox::RangeError& error) {
      return error.what();
    }
    return {};
  }
  if (std::holds_alternative<bool>(value)) return {};
  return mustText(*setting);
}

}  // namespace Agent
