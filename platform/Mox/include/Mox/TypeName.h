// The name of an attribute's type, for people and tools.
//
// A class has it in a `valueTypeName` (entities: `entityTypeName`), an enumeration in its
// `enumerationName`; pointers have the name of the type that they point to.
#pragma once

#include <concepts>
#include <string>
#include <type_traits>

#include <Mox/Enumeration.h>
#include <Mox/Name.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Mox {

template <class T>
struct Pointee {
  using type = T;
};
template <class T>
struct Pointee<T*> {
  using type = std::remove_const_t<T>;
};
template <class T>
struct Pointee<Ptr<T>> {
  using type = std::remove_const_t<T>;
};

template <class Given>
constexpr const char* typeNameOf() {
  using T = typename Pointee<std::remove_cvref_t<Given>>::type;
  if constexpr (Enumeration<T>) {
    return enumerationName(T{});
  } else if constexpr (requires { T::entityTypeName; }) {
    return T::entityTypeName;
  } else if constexpr (requires { T::valueTypeName; }) {
    return T::valueTypeName;
  } else if constexpr (std::same_as<T, bool>) {
    return "bool";
  } else if constexpr (std::same_as<T, U8>) {
    return "U8";
  } else if constexpr (std::same_as<T, U16>) {
    return "U16";
  } else if constexpr (std::same_as<T, U32>) {
    return "U32";
  } else if constexpr (std::same_as<T, U64>) {
    return "U64";
  } else if constexpr (std::same_as<T, S32>) {
    return "S32";
  } else if constexpr (std::same_as<T, Seconds>) {
    return "Seconds";
  } else if constexpr (std::same_as<T, std::string>) {
    return "string";
  } else if constexpr (std::same_as<T, Name>) {
    return "Mox::Name";
  } else {
    return "";
  }
}

}  // namespace Mox
