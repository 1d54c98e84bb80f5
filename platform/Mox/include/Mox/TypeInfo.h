// A type of objects as data, for code that does not know the type: its attributes with their
// identifiers, how to read and write each, its collections, and its operations. Made from the
// type's attribute table alone.
//
//   for (const AttrInfo& attr : entity.type().attrs) {
//     if (attr.get != nullptr) print(attr.name, attr.get(entity));
//   }
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include <Mox/AttrTable.h>
#include <Mox/AttrValue.h>
#include <Mox/Object.h>
#include <Mox/TypeName.h>
#include <Mox/Value.h>
#include <MoxBase/Export.h>
#include <MoxBase/Text.h>
#include <MoxBase/Types.h>

namespace Mox {

class EntityBase;

// One attribute. Its functions are for objects of its type only.
struct AttrInfo {
  AttrId id = 0;
  const char* name = nullptr;
  AttrKind kind = AttrKind::part;
  ValueKind value = ValueKind::text;
  Unit unit = Unit::byType;
  const char* typeName = "";  // of the value, the members, the object, or the result
  bool named = false;         // the value travels as a number and reads as a text

  // Null for collections, for operations, and for attributes that hold another object.
  Value (*get)(const Object&) = nullptr;
  std::string (*text)(const Object&) = nullptr;
  // Null where nothing can be written.
  void (*set)(Object&, const Value&) = nullptr;
  // The same for an attribute that is set by a pointer: given the address of a pointer of the type
  // `pointer`.
  void (*setPointer)(Object&, const void* address) = nullptr;
  const std::type_info* pointer = nullptr;
  // The object that this attribute holds or points to, or null; for those attributes only.
  const Object* (*held)(const Object&) = nullptr;
  // Calls the operation with the address of its argument; without a parameter that is ignored.
  Value (*call)(Object&, const void* argument) = nullptr;
  const std::type_info* parameter = nullptr;
  const char* parameterName = "";
};

// How the members of a collection are reached by key. A set has keys and no members.
struct CollectionInfo {
  AttrId id = 0;
  const char* name = nullptr;
  bool ordered = false;
  const TypeInfo& (*memberType)() = nullptr;  // null for a set
  size_t (*size)(const EntityBase&) = nullptr;
  EntityBase* (*find)(const EntityBase&, U32 key) = nullptr;  // null for none, and for a set
  // Found or made, and removed; null where only the owner makes and removes members. A member may
  // be gone from the collection again when it is returned; nothing is returned for a set.
  Ptr<EntityBase> (*add)(EntityBase&, U32 key) = nullptr;
  void (*remove)(EntityBase&, U32 key) = nullptr;
  std::vector<U32> (*keys)(const EntityBase&) = nullptr;
  // Calls `use` for the keys from a bookmark on, 0 at first, about `most` of them, and returns the
  // next bookmark, or 0 at the end. Members may come and go between two calls, not within one: each
  // that is there all the time is met once. In ascending order where the collection is ordered.
  U64(*walk)
  (const EntityBase&, U64 bookmark, size_t most, const std::function<void(U32)>& use) = nullptr;
  // The first member whose key is not below `from`; only where the collection is ordered.
  std::optional<U32> (*next)(const EntityBase&, U32 from) = nullptr;
  std::string (*keyText)(U32 key) = nullptr;
  // The key that reads so; null where keys are not made of texts.
  std::optional<U32> (*keyOf)(std::string_view text) = nullptr;
};

struct MOX_PUBLIC TypeInfo {
  const char* name;
  std::span<const AttrInfo> attrs;  // the rows of the table, in the order of identifiers
  std::span<const CollectionInfo> collections;
  // What the framework adds to every entity: fullName, parent, parentAttrName, entity.
  std::span<const AttrInfo> (*framework)() = nullptr;

  // The attribute of that identifier or name, the framework's included; null for none.
  const AttrInfo* attr(AttrId id) const;
  const AttrInfo* attr(std::string_view attrName) const;
  // The collection of that name; null for none.
  const CollectionInfo* collection(std::string_view attrName) const;
  // The construction argument; null for a type without one.
  const AttrInfo* key() const;
  // All attributes as the type's record lists them: its name, those of the framework, the rest.
  std::vector<const AttrInfo*> record() const;
};

// The attributes that the framework adds to every entity; their identifiers end below the tables'.
MOX_PUBLIC std::span<const AttrInfo> entityFrameworkAttrs();

// How a value reads where its type is not known.
MOX_PUBLIC std::string valueText(const Value& value);

// Built from the table of E, once.
template <class E>
const TypeInfo& typeInfoOf();

namespace detail {

template <class T>
concept HoldsObject = std::convertible_to<typename Pointee<T>::type*, const Object*> &&
                      !std::same_as<typename Pointee<T>::type, T>;

template <class T>
concept HasText = requires(std::string& out, const T& value) {
  appendText(out, value);
};

// The text of a value that `valueFrom` knows.
template <class T>
std::string plainText(const T& value) {
  if constexpr (HasText<T>) {
    std::string out;
    appendText(out, value);
    return out;
  } else {
    return valueText(valueFrom(value));
  }
}

// The accessors of one row, each a function of its own.
template <class E, size_t at>
struct RowAccess {
  static constexpr auto row = E::attributes.template row<at>();

  static decltype(auto) read(const E& self) {
    if constexpr (requires { self.*row.member; }) {
      return (self.*row.member);
    } else {
      return (self.*row.get)();
    }
  }

  static Value get(const Object& object) { return valueFrom(read(static_cast<const E&>(object))); }
  static std::string text(const Object& object) {
    return plainText(read(static_cast<const E&>(object)));
  }
  static Value getShown(const Object& object) {
    return shownValue(read(static_cast<const E&>(object)));
  }
  static std::string textShown(const Object& object) { return valueText(getShown(object)); }
  static const Object* held(const Object& object) {
    const auto& pointer = read(static_cast<const E&>(object));
    if constexpr (requires { pointer.get(); }) {
      return pointer.get();
    } else {
      return pointer;
    }
  }
  template <class Arg>
  static std::remove_cvref_t<Arg> argument(void (E::*)(Arg));

  static void setPointer(Object& object, const void* address) {
    using P = decltype(argument(row.set));
    (static_cast<E&>(object).*row.set)(*static_cast<const P*>(address));
  }
  static void set(Object& object, const Value& value) {
    E& self = static_cast<E&>(object);
    using V = std::remove_cvref_t<decltype(self.*row.member)>;
    (self.*row.set)(typedFrom<V>(value));
  }

  template <class V>
  static constexpr void valued(AttrInfo& info) {
    if constexpr (requires { row.typeName; }) {
      info.typeName = row.typeName;
    } else {
      info.typeName = typeNameOf<V>();
    }
    info.value = valueKind<V>;
    info.named = Enumeration<V> || Numbered<V>;
    if constexpr (Valued<V>) {
      info.get = &get;
      info.text = &text;
      if constexpr (requires { row.set; }) info.set = &set;
    } else if constexpr (HoldsObject<V>) {
      info.held = &held;
    } else if constexpr (Shown<V>) {
      info.value = shownKind<decltype(shownValue(std::declval<const V&>()))>();
      info.get = &getShown;
      info.text = &textShown;
    } else {
      static_assert(Valued<V>, "an attribute has a value, holds an object, or has a value to show");
    }
    if constexpr (!Valued<V> && requires { row.set; }) {
      info.setPointer = &setPointer;
      info.pointer = &typeid(decltype(argument(row.set)));
    }
  }
  template <class Shown>
  static constexpr ValueKind shownKind() {
    return valueKind<Shown>;
  }

  template <class R, class... Arg>
  static constexpr void called(AttrInfo& info, R (E::*)(Arg...)) {
    info.call = [](Object& object, [[maybe_unused]] const void* argument) -> Value {
      E& self = static_cast<E&>(object);
      if constexpr (std::is_void_v<R>) {
        (self.*row.call)(*static_cast<const std::remove_cvref_t<Arg>*>(argument)...);
        return {};
      } else {
        return valueFrom(
            (self.*row.call)(*static_cast<const std::remove_cvref_t<Arg>*>(argument)...));
      }
    };
    if constexpr (!std::is_void_v<R>) info.typeName = typeNameOf<R>();
    ((info.parameter = &typeid(std::remove_cvref_t<Arg>)), ...);
    ((info.parameterName = typeNameOf<Arg>()), ...);
  }

  static constexpr AttrInfo info(AttrId id) {
    AttrInfo info{.id = id, .name = row.name, .kind = row.kind};
    if constexpr (requires { row.unit; }) info.unit = row.unit;
    if constexpr (row.kind == AttrKind::collection) {
      info.typeName = E::template CollectionAccess<at>::memberTypeName;
    } else if constexpr (row.kind == AttrKind::operation) {
      called(info, row.call);
    } else {
      valued<std::remove_cvref_t<decltype(read(std::declval<const E&>()))>>(info);
    }
    return info;
  }
};

template <class E, class Indices>
struct TableAccess;

template <class E, size_t... at>
struct TableAccess<E, std::index_sequence<at...>> {
  static constexpr std::array<AttrInfo, sizeof...(at)> attrs{
      RowAccess<E, at>::info(static_cast<AttrId>(E::attributes.first + at))...};
  static constexpr size_t collectionCount =
      (size_t{0} + ... + (attrs[at].kind == AttrKind::collection ? 1 : 0));

  static constexpr std::array<CollectionInfo, collectionCount> collections() {
    std::array<CollectionInfo, collectionCount> all{};
    [[maybe_unused]] size_t filled = 0;
    (
        [&] {
          if constexpr (attrs[at].kind == AttrKind::collection) {
            all[filled++] = E::template CollectionAccess<at>::info();
          }
        }(),
        ...);
    return all;
  }
};

}  // namespace detail

template <class E>
const TypeInfo& typeInfoOf() {
  using Access = detail::TableAccess<E, std::make_index_sequence<E::attributes.size>>;
  static constexpr auto collections = Access::collections();
  static constexpr TypeInfo info{
      E::entityTypeName, Access::attrs, collections,
      std::convertible_to<E*, const EntityBase*> ? &entityFrameworkAttrs : nullptr};
  return info;
}

// An object outside the tree of entities that can be reached by its attribute table all the same.
template <class Self>
class ObjectOf : public Object {
 public:
  const TypeInfo& type() const final { return typeInfoOf<Self>(); }
};

}  // namespace Mox
