#include <Text/Json.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <Text/WallClock.h>

namespace Agent {

std::optional<Mox::Seconds> jsonSeconds(Mox::Seconds seconds) {
  if (!std::isfinite(seconds)) return std::nullopt;
  const Mox::Seconds rounded = std::round(seconds * 1e6) / 1e6;
  return rounded == 0.0 ? 0.0 : rounded;
}

namespace {

// Whether a text can stand in JSON as it is.
bool isPlain(std::string_view text) {
  return std::ranges::all_of(text,
                             [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

}  // namespace

void appendJson(std::string& out, Mox::Seconds seconds) {
  const std::optional<Mox::Seconds> rounded = jsonSeconds(seconds);
  if (!rounded) {
    out += "null";
    return;
  }
  const size_t begin = out.size();
  fmt::format_to(std::back_inserter(out), "{}", *rounded);
  // A number that is a time shows it, as in 125.0.
  if (out.find_first_of(".e", begin) == std::string::npos) out += ".0";
}

void appendJson(std::string& out, std::string_view text) {
  if (isPlain(text)) {
    out += '"';
    out += text;
    out += '"';
    return;
  }
  out += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void appendJson(std::string& out, Ilvo::IpAddr addr) {
  out += '"';
  Ilvo::appendText(out, addr);
  out += '"';
}

std::string& JsonObject::value(const char* key) {
  if (json_.back() != '{') json_ += ',';
  json_ += '"';
  json_ += key;
  json_ += "\":";
  return json_;
}

JsonObject& JsonObject::word(const char* key, std::string_view json) {
  value(key) += json;
  return *this;
}

JsonObject& JsonObject::text(const char* key, std::string_view v) {
  appendJson(value(key), v);
  return *this;
}

JsonObject& JsonObject::flag(const char* key, bool v) { return word(key, v ? "true" : "false"); }

JsonObject& JsonObject::number(const char* key, Mox::U64 v) {
  const fmt::format_int digits(v);
  return word(key, {digits.data(), digits.size()});
}

JsonObject& JsonObject::seconds(const char* key, Mox::Seconds v) {
  appendJson(value(key), v);
  return *this;
}

JsonObject& JsonObject::address(const char* key, Ilvo::IpAddr v) {
  appendJson(value(key), v);
  return *this;
}

JsonObject& JsonObject::knownAddress(const char* key, Ilvo::IpAddr v) {
  return v.isZero() ? null(key) : address(key, v);
}

JsonObject& JsonObject::addresses(const char* key, std::span<const Ilvo::IpAddr> values) {
  value(key) += '[';
  for (const Ilvo::IpAddr& addr : values) {
    if (&addr != values.data()) json_ += ',';
    appendJson(json_, addr);
  }
  json_ += ']';
  return *this;
}

JsonObject& JsonObject::object(const char* key, const JsonObject& v) { return word(key, v.line()); }

JsonObject& JsonObject::null(const char* key) { return word(key, "null"); }

JsonObject& JsonObject::times(Mox::Seconds time) {
  seconds("time", time);
  const UtcText utc(wallTime(time));
  return utc.text().empty() ? null("utc") : text("utc", utc.text());
}

}  // namespace Agent
