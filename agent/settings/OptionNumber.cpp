#include <Settings/OptionNumber.h>

#include <charconv>
#include <cmath>
#include <optional>
#include <string>

#include <fmt/format.h>

#include <Settings/SettingError.h>

namespace Agent {

namespace {

std::optional<double> numberOf(std::string_view text) {
  double number = 0.0;
  const char* end = text.data() + text.size();
  const auto [rest, problem] = std::from_chars(text.data(), end, number);
  if (problem != std::errc() || rest != end || !std::isfinite(number)) return std::nullopt;
  return number;
}

// A number too big for any integer type is still a whole number, and out of every range.
std::optional<double> wholeNumberOf(std::string_view text) {
  const bool digits = text.find_first_not_of("-0123456789") == std::string_view::npos;
  return digits ? numberOf(text) : std::nullopt;
}

}  // namespace

std::string mustText(const NumberRange& range) {
  std::string text = "must be ";
  if (range.zero != nullptr) text += fmt::format("0 ({}) or ", range.zero);
  text += fmt::format("from {} to {}", range.least, range.most);
  if (range.reference != nullptr) text += fmt::format(" ({})", range.reference);
  return text;
}

bool fits(double number, const NumberRange& range) {
  if (range.zero != nullptr && number == 0.0) return true;
  return number >= range.least && number <= range.most;
}

double optionNumber(std::string_view option, std::string_view text, const NumberRange& range) {
  const std::optional<double> number = range.whole ? wholeNumberOf(text) : numberOf(text);
  const auto refuse = [&](const std::string& why) {
    throw SettingError(std::string(option), std::string(text), why);
  };
  if (!number) {
    refuse(fmt::format("not a {}number; {}", range.whole ? "whole " : "", mustText(range)));
  }
  if (!fits(*number, range)) refuse(mustText(range));
  return *number;
}

}  // namespace Agent
