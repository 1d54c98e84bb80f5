// appendText(out, value): how a value reads in traces, tables and messages.
//
// This header covers the built-in types. Any other type adds its own overload in its own namespace,
// where argument-dependent lookup finds it. Code outside namespace Mox that calls with types it
// does not know says `using Mox::appendText;` first. The overloads here are templates held to the
// exact type, so that an enumeration or a pointer without a text of its own does not become a
// number or "true" by conversion: it does not compile.
//
//   textOf(260.0)  // "260"
//   textOf(never)  // "inf"
//   namespace Ilvo { void appendText(std::string& out, IpAddr addr); }
#pragma once

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>

#include <MoxBase/Export.h>

namespace Mox {

namespace detail {
MOX_PUBLIC void appendDouble(std::string& out, double value);
MOX_PUBLIC void appendAddress(std::string& out, const void* address);
}  // namespace detail

inline void appendText(std::string& out, std::string_view value) { out += value; }
inline void appendText(std::string& out, const char* value) {
  out += value != nullptr ? value : "null";
}

template <std::same_as<bool> T>
void appendText(std::string& out, T value) {
  out += value ? "true" : "false";
}

// A char is a character; U8 and every other integer is a number.
template <std::same_as<char> T>
void appendText(std::string& out, T value) {
  out += value;
}

template <std::integral T>
  requires(!std::same_as<T, bool> && !std::same_as<T, char>)
void appendText(std::string& out, T value) {
  char digits[24];
  out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

// The shortest digits that read back as the same number: "260", "0.1", "1e+300", "inf", "nan".
template <std::same_as<double> T>
void appendText(std::string& out, T value) {
  detail::appendDouble(out, value);
}

// Any other object pointer: its address.
template <class T>
  requires(!std::same_as<std::remove_cv_t<T>, char> && (std::is_object_v<T> || std::is_void_v<T>))
void appendText(std::string& out, T* value) { detail::appendAddress(out, value); }

template <class T>
std::string textOf(const T& value) {
  std::string out;
  appendText(out, value);
  return out;
}

}  // namespace Mox
