// All values of an entity and of those below it, as text that is the same for the same values. NaN
// is a number like any other here.
//
//   property(valuesOf(copy) == valuesOf(original), "a copy equals the original");
#pragma once

#include <algorithm>
#include <string>
#include <variant>
#include <vector>

#include <Mox/Entity.h>
#include <Mox/TypeInfo.h>

namespace Fuzz {

inline void addValues(const Mox::EntityBase& entity, std::string& out) {
  for (const Mox::AttrInfo& attr : entity.type().attrs) {
    if (attr.get == nullptr) continue;
    const Mox::Value value = attr.get(entity);
    if (const auto* flag = std::get_if<bool>(&value)) out += *flag ? "yes" : "no";
    if (const auto* number = std::get_if<Mox::U64>(&value)) out += std::to_string(*number);
    if (const auto* seconds = std::get_if<double>(&value)) out += std::to_string(*seconds);
    if (const auto* text = std::get_if<std::string>(&value)) out += *text;
    out += ' ';
  }
  for (const Mox::CollectionInfo& collection : entity.type().collections) {
    std::vector<Mox::U32> keys = collection.keys(entity);
    std::sort(keys.begin(), keys.end());
    for (const Mox::U32 key : keys) addValues(*collection.find(entity, key), out);
  }
}

inline std::string valuesOf(const Mox::EntityBase& entity) {
  std::string out;
  addValues(entity, out);
  return out;
}

}  // namespace Fuzz
