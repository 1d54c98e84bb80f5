// The enumeration service: numbers and names of an enumeration from one list.
//
// An enumeration has a constexpr `enumerators(E)` beside it that lists its values with their names
// and an `enumerationName(E)`; both are found by argument-dependent lookup. Everything else comes
// from here. A number without a name still prints (its number), but cannot be made into an
// enumerator.
//
//   enum TimerState : U32 { timerDisabled, timerRunning };
//   constexpr auto enumerators(TimerState) {
//     return std::array{Mox::enumerator(timerDisabled, "timerDisabled"), ...};
//   }
//   Mox::enumeratorOf<TimerState>("timerRunning");
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <Mox/Errors.h>
#include <Mox/Value.h>
#include <MoxBase/Types.h>

namespace Mox {

template <class E>
struct Enumerator {
  E value;
  const char* name;
};

template <class E>
constexpr Enumerator<E> enumerator(E value, const char* name) {
  return {value, name};
}

template <class E>
concept Enumeration = requires(E e) {
  enumerators(e);
  enumerationName(e);
};

// The enumerator with that number; a RangeError when there is none.
template <Enumeration E>
E enumeratorOf(U32 number) {
  for (const auto& e : enumerators(E{})) {
    if (static_cast<U32>(e.value) == number) return e.value;
  }
  throw RangeError(std::string(enumerationName(E{})) + " has no value " + std::to_string(number));
}

// The enumerator of that name; a RangeError when there is none.
template <Enumeration E>
E enumeratorOf(std::string_view name) {
  for (const auto& e : enumerators(E{})) {
    if (e.name == name) return e.value;
  }
  throw RangeError(std::string(enumerationName(E{})) + " has no value '" + std::string(name) + "'");
}

// The name of an enumerator; null for a number that has none.
template <Enumeration E>
const char* enumeratorName(E value) {
  for (const auto& e : enumerators(E{})) {
    if (e.value == value) return e.name;
  }
  return nullptr;
}

// The enumerator's name, or its number where it has none.
template <Enumeration E>
std::string enumeratorText(E value) {
  const char* name = enumeratorName(value);
  return name != nullptr ? name : std::to_string(static_cast<U32>(value));
}

// The representation inside a textual dump of values: the name in quotes.
template <Enumeration E>
std::string enumeratorStrep(E value) {
  return "'" + enumeratorText(value) + "'";
}

// From a value of generic access: a number or a name.
template <Enumeration E>
E enumeratorFrom(const Value& value) {
  if (const U64* number = std::get_if<U64>(&value)) {
    if (*number > 0xffffffffu) {
      throw RangeError(std::string(enumerationName(E{})) + " has no value " +
                       std::to_string(*number));
    }
    return enumeratorOf<E>(static_cast<U32>(*number));
  }
  if (const std::string* name = std::get_if<std::string>(&value)) return enumeratorOf<E>(*name);
  throw RangeError(std::string(enumerationName(E{})) + " is made of a number or a name");
}

}  // namespace Mox
