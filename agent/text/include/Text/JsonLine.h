// JSON as this program writes it: keys in the order in which they were set, seconds without the
// noise of binary fractions, one object a line.
#pragma once

#include <cmath>
#include <string>

#include <nlohmann/json.hpp>

#include <Ilvo/IpAddr.h>
#include <MoxBase/Types.h>

namespace Agent {

using Json = nlohmann::ordered_json;

// To the microsecond; null for what is no time.
inline Json secondsJson(Mox::Seconds seconds) {
  if (!std::isfinite(seconds)) return nullptr;
  const double rounded = std::round(seconds * 1e6) / 1e6;
  return rounded == 0.0 ? 0.0 : rounded;  // never "-0.0"
}

// Null for 0.0.0.0, where that stands for none.
inline Json knownAddressJson(Ilvo::IpAddr addr) {
  if (addr.isZero()) return nullptr;
  return addr.stringValue();
}

// Interface names may hold any bytes; what is no UTF-8 is replaced, since readers would refuse the
// line.
inline std::string jsonLine(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Agent
