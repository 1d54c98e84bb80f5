#include "Keys.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace Agent::Scenario {

using Ilvo::IpAddr;
using Ilvo::IpGenPrefix;
using Mox::U32;
using Mox::U8;

double numberOf(const Json& value, const std::string& what) {
  if (!value.is_number()) throw StepError(what + " must be a number");
  const double number = value.get<double>();
  if (!std::isfinite(number)) throw StepError(what + " must be a finite number");
  return number;
}

U32 u32Of(const Json& value, const std::string& what) {
  if (value.is_number_unsigned()) {
    const auto number = value.get<Mox::U64>();
    if (number <= 0xffffffffU) return static_cast<U32>(number);
  }
  throw StepError(what + " must be an integer from 0 to 4294967295");
}

bool flagOf(const Json& value, const std::string& what) {
  if (!value.is_boolean()) throw StepError(what + " must be true or false");
  return value.get<bool>();
}

const std::string& textOf(const Json& value, const std::string& what) {
  if (!value.is_string()) throw StepError(what + " must be a string");
  return value.get_ref<const std::string&>();
}

const Json& objectOf(const Json& value, const std::string& what) {
  if (!value.is_object()) throw StepError(what + " must be an object");
  return value;
}

Keys::Keys(const Json& object, std::string what)
    : object_(objectOf(object, what)), what_(std::move(what)) {}

const Json& Keys::value(const char* key) {
  known_.emplace_back(key);
  const auto found = object_.find(key);
  if (found == object_.end()) throw StepError(fmt::format("{} has no key \"{}\"", what_, key));
  return *found;
}

std::string Keys::text(const char* key) { return textOf(value(key), fmt::format("\"{}\"", key)); }
double Keys::number(const char* key) { return numberOf(value(key), fmt::format("\"{}\"", key)); }
U32 Keys::u32(const char* key) { return u32Of(value(key), fmt::format("\"{}\"", key)); }
bool Keys::flag(const char* key) { return flagOf(value(key), fmt::format("\"{}\"", key)); }

IpAddr Keys::addr(const char* key) {
  const std::string written = text(key);
  const auto addr = IpAddr::parse(written);
  if (!addr) throw StepError(fmt::format("\"{}\": {} is no IPv4 address", key, written));
  return *addr;
}

const Json& Keys::list(const char* key, const char* of) {
  const Json& items = value(key);
  if (!items.is_array()) throw StepError(fmt::format("\"{}\" must be a list of {}", key, of));
  return items;
}

std::vector<IpGenPrefix> Keys::prefixes(const char* key) {
  std::vector<IpGenPrefix> prefixes;
  for (const Json& item : list(key, "prefixes")) {
    const std::string& written = textOf(item, fmt::format("each prefix of \"{}\"", key));
    const auto prefix =
        written.find('/') == std::string::npos ? std::nullopt : IpGenPrefix::parse(written);
    if (!prefix) throw StepError(fmt::format("\"{}\": {} is no prefix", key, written));
    prefixes.push_back(*prefix);
  }
  return prefixes;
}

std::vector<U8> Keys::hex(const char* key) {
  const std::string written = text(key);
  const auto digit = [&](char c) -> unsigned {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    throw StepError(fmt::format("\"{}\" must be hexadecimal digits", key));
  };
  if (written.size() % 2 != 0) {
    throw StepError(fmt::format("\"{}\" must have an even number of digits", key));
  }
  std::vector<U8> bytes;
  bytes.reserve(written.size() / 2);
  for (size_t at = 0; at < written.size(); at += 2) {
    bytes.push_back(static_cast<U8>(digit(written[at]) << 4 | digit(written[at + 1])));
  }
  return bytes;
}

void Keys::done() const {
  for (const auto& [key, value] : object_.items()) {
    if (std::find(known_.begin(), known_.end(), key) == known_.end()) {
      throw StepError(fmt::format("unknown key \"{}\" in {}", key, what_));
    }
  }
}

}  // namespace Agent::Scenario
