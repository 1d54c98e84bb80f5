// The textual form of a value from the table of its fields:
// "Value('Type', ** {'field': text, ...})".
//
// A class lists its fields in a FieldTable `fields` and its qualified name in `valueTypeName`. Each
// field stands in its own form, the `valueToStrep` of its type, found by argument-dependent lookup;
// whole numbers stand as they are.
//
//   struct Point { ... static constexpr Mox::FieldTable fields{Mox::Field{"x", &Point::x}, ...}; };
//   valueStrep(Point{1, 2})  // "Value('Test::Point', ** {'x': 1, 'y': 2})"
#pragma once

#include <concepts>
#include <string>

#include <Mox/AttrTable.h>

namespace Mox {

template <class T>
std::string fieldStrep(const T& value) {
  if constexpr (std::same_as<T, bool>) {
    return value ? "True" : "False";
  } else if constexpr (std::integral<T>) {
    return std::to_string(value);
  } else {
    return valueToStrep(value);
  }
}

template <class V>
std::string valueStrep(const V& value) {
  std::string text = std::string("Value('") + V::valueTypeName + "', ** {";
  V::fields.forEach([&](AttrId id, const auto& field) {
    if (id != V::fields.first) text += ", ";
    text += std::string("'") + field.name + "': " + fieldStrep(value.*field.member);
  });
  return text + "})";
}

}  // namespace Mox
