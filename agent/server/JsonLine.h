// JSON of requests and their answers: keys in the order in which they were set, one object a line.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include <Mox/Value.h>
#include <MoxBase/Types.h>
#include <Text/Json.h>

namespace Agent {

using Json = nlohmann::ordered_json;

// Null for a value that is no time.
inline Json secondsJson(Mox::Seconds seconds) {
  const std::optional<Mox::Seconds> rounded = jsonSeconds(seconds);
  return rounded ? Json(*rounded) : Json();
}

inline Json jsonOf(const Mox::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag;
  if (const auto* number = std::get_if<Mox::U64>(&value)) return *number;
  if (const auto* number = std::get_if<Mox::S64>(&value)) return *number;
  if (const auto* seconds = std::get_if<double>(&value)) return secondsJson(*seconds);
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  return nullptr;
}

// Interface names may hold any bytes; bytes that are no UTF-8 are replaced, since readers would
// refuse the line.
inline std::string jsonLine(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Agent
