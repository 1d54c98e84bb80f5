// Conversion between the types of attributes and Value: one rule for every type, for code that
// reads or writes attributes without knowing them.
//
// Flags, numbers, seconds and texts stay as they are; enumerators and addresses become their
// number. A value that the type does not have is a RangeError. A type that is none of these, such
// as a timer, is shown as the result of its `shownValue`, found by argument-dependent lookup; it
// cannot be written.
#pragma once

#include <concepts>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include <Mox/Enumeration.h>
#include <Mox/Errors.h>
#include <Mox/Value.h>
#include <MoxBase/Types.h>

namespace Mox {

// The kind of a value decides its width wherever it is written.
enum class ValueKind : U8 { flag, u32, u64, seconds, text, s32 };

namespace detail {

// An address, or another key of 32 bits.
template <class T>
concept Numbered = requires(T t) {
  { t.value() } -> std::same_as<U32>;
}
&&std::constructible_from<T, U32>;

template <class T>
constexpr ValueKind kindOf() {
  if constexpr (std::same_as<T, bool>) {
    return ValueKind::flag;
  } else if constexpr (std::same_as<T, U64>) {
    return ValueKind::u64;
  } else if constexpr (std::signed_integral<T>) {
    static_assert(sizeof(T) <= sizeof(S32), "there is no kind for wider signed numbers");
    return ValueKind::s32;
  } else if constexpr (std::integral<T> || std::is_enum_v<T> || Numbered<T>) {
    return ValueKind::u32;
  } else if constexpr (std::floating_point<T>) {
    return ValueKind::seconds;
  } else {
    return ValueKind::text;
  }
}

}  // namespace detail

// A type of attribute that has a value; parts such as timers have none.
template <class T>
concept Valued = std::integral<T> || std::floating_point<T> || std::is_enum_v<T> ||
    detail::Numbered<T> || std::constructible_from<std::string, const T&> || requires(const T& t) {
  { t.string() } -> std::same_as<std::string>;
};

// A type that has no value to write, but one to show.
template <class T>
concept Shown = !Valued<T> && requires(const T& t) {
  { shownValue(t) } -> std::convertible_to<Value>;
};

template <class T>
inline constexpr ValueKind valueKind = detail::kindOf<std::remove_cvref_t<T>>();

template <Valued T>
Value valueFrom(const T& typed) {
  if constexpr (std::same_as<T, bool>) {
    return typed;
  } else if constexpr (detail::Numbered<T>) {
    return U64{typed.value()};
  } else if constexpr (std::signed_integral<T>) {
    return S64{typed};
  } else if constexpr (std::integral<T> || std::is_enum_v<T>) {
    return static_cast<U64>(typed);
  } else if constexpr (std::floating_point<T>) {
    return double{typed};
  } else if constexpr (requires { typed.string(); }) {
    return typed.string();
  } else {
    return std::string(typed);
  }
}

namespace detail {

template <class Held>
const Held& held(const Value& value, const char* wanted) {
  if (const Held* found = std::get_if<Held>(&value)) return *found;
  throw RangeError(std::string("the value is not ") + wanted);
}

}  // namespace detail

template <class T>
T typedFrom(const Value& value) {
  if constexpr (Enumeration<T>) {
    return enumeratorFrom<T>(value);
  } else if constexpr (std::same_as<T, bool>) {
    return detail::held<bool>(value, "a flag");
  } else if constexpr (std::signed_integral<T>) {
    const S64 number = detail::held<S64>(value, "a whole number");
    if (!std::in_range<T>(number)) throw RangeError(std::to_string(number) + " is out of range");
    return static_cast<T>(number);
  } else if constexpr (std::integral<T> || detail::Numbered<T>) {
    using Number = std::conditional_t<std::integral<T>, T, U32>;
    const U64 number = detail::held<U64>(value, "a whole number");
    if (number > std::numeric_limits<Number>::max()) {
      throw RangeError(std::to_string(number) + " is too large");
    }
    return T(static_cast<Number>(number));
  } else if constexpr (std::floating_point<T>) {
    return detail::held<double>(value, "a number of seconds");
  } else {
    return T(detail::held<std::string>(value, "a text"));
  }
}

}  // namespace Mox
