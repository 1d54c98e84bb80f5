// Attribute values as JSON and back, by the types that the attribute tables name.
//
// Enumerations are their names, addresses dotted quads, sets of addresses lists in their order,
// +infinity is "inf".
#pragma once

#include <algorithm>
#include <cmath>
#include <concepts>
#include <string>
#include <vector>

#include <GmpIgmpQuerier/Enumerations.h>
#include <Ilvo/IpAddr.h>
#include <Mox/AttrTable.h>
#include <Mox/HashMap.h>
#include <Mox/Name.h>

#include "Keys.h"

namespace Agent::Scenario {

inline Json jsonOf(double value) {
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  return value;
}
template <std::integral T>
Json jsonOf(T value) {
  return value;
}
inline Json jsonOf(const std::string& value) { return value; }
inline Json jsonOf(Mox::Name value) { return value.string(); }
inline Json jsonOf(Ilvo::IpAddr value) { return value.stringValue(); }
template <Mox::Enumeration E>
Json jsonOf(E value) {
  return Mox::enumeratorText(value);
}

template <class Map>
std::vector<Ilvo::IpAddr> sortedKeys(const Map& map) {
  std::vector<Ilvo::IpAddr> keys = map.keys();
  std::sort(keys.begin(), keys.end());
  return keys;
}
inline Json jsonOf(const Mox::HashMap<Ilvo::IpAddr, bool>& addresses) {
  Json list = Json::array();
  for (const Ilvo::IpAddr addr : sortedKeys(addresses)) list.push_back(addr.stringValue());
  return list;
}

inline void fromJson(const Json& json, const std::string& what, double& value) {
  value = numberOf(json, what);
}
inline void fromJson(const Json& json, const std::string& what, Mox::U32& value) {
  value = u32Of(json, what);
}
inline void fromJson(const Json& json, const std::string& what, bool& value) {
  value = flagOf(json, what);
}
template <Mox::Enumeration E>
void fromJson(const Json& json, const std::string& what, E& value) {
  try {
    value = Mox::enumeratorOf<E>(textOf(json, what));
  } catch (const Mox::RangeError& error) {
    throw StepError(what + ": " + error.what());
  }
}

// Calls f(name, json) for each attribute of the entity that has a value of its own, in table order.
template <class E, class F>
void forEachValue(const E& entity, F f) {
  E::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (requires { jsonOf(entity.*row.member); }) {
      f(row.name, jsonOf(entity.*row.member));
    } else if constexpr (requires { jsonOf((entity.*row.get)()); }) {
      f(row.name, jsonOf((entity.*row.get)()));
    } else if constexpr (requires { jsonOf((entity.*row.keys)()); }) {
      f(row.name, jsonOf((entity.*row.keys)()));
    }
  });
}

}  // namespace Agent::Scenario
