#include <Text/Json.h>

#include <cmath>

#include <nlohmann/json.hpp>

#include <Text/WallClock.h>

namespace Agent {

std::optional<Mox::Seconds> jsonSeconds(Mox::Seconds seconds) {
  if (!std::isfinite(seconds)) return std::nullopt;
  const Mox::Seconds rounded = std::round(seconds * 1e6) / 1e6;
  return rounded == 0.0 ? 0.0 : rounded;
}

void appendJson(std::string& out, Mox::Seconds seconds) {
  const std::optional<Mox::Seconds> rounded = jsonSeconds(seconds);
  out += rounded ? nlohmann::json(*rounded).dump() : "null";
}

void appendJson(std::string& out, std::string_view text) {
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

JsonObject& JsonObject::number(const char* key, Mox::U64 v) { return word(key, std::to_string(v)); }

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
  const std::string utc = utcText(wallTime(time));
  return utc.empty() ? null("utc") : text("utc", utc);
}

}  // namespace Agent
