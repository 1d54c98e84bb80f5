// What an entity type is, for code that does not know it: its attributes with their identifiers,
// how to read and write each, and its collection. Made from the type's attribute table alone.
//
//   for (const AttrInfo& attr : entity.type().attrs) {
//     if (attr.get != nullptr) print(attr.name, attr.get(entity));
//   }
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include <Mox/AttrTable.h>
#include <Mox/AttrValue.h>
#include <Mox/Export.h>
#include <Mox/Types.h>
#include <Mox/Value.h>

namespace Mox {

class EntityBase;
struct TypeInfo;

struct AttrInfo {
  AttrId id = 0;
  const char* name = nullptr;
  AttrKind kind = AttrKind::piece;
  ValueKind value = ValueKind::text;
  Value (*get)(const EntityBase&) = nullptr;         // null for collections
  void (*set)(EntityBase&, const Value&) = nullptr;  // null for what cannot be written
};

// How the members of a collection are reached by key.
struct CollectionInfo {
  AttrId id = 0;
  const char* name = nullptr;
  bool ordered = false;
  const TypeInfo& (*memberType)() = nullptr;
  size_t (*size)(const EntityBase&) = nullptr;
  EntityBase* (*find)(const EntityBase&, U32 key) = nullptr;  // null for none
  EntityBase* (*add)(EntityBase&, U32 key) = nullptr;         // found or made
  void (*remove)(EntityBase&, U32 key) = nullptr;
  std::vector<U32> (*keys)(const EntityBase&) = nullptr;
  // The first member whose key is not below `from`; only where the collection is ordered.
  std::optional<U32> (*next)(const EntityBase&, U32 from) = nullptr;
};

struct MOX_PUBLIC TypeInfo {
  const char* name;
  std::span<const AttrInfo> attrs;  // in the order of identifiers
  std::span<const CollectionInfo> collections;

  // The attribute of that identifier or name; null for none.
  const AttrInfo* attr(AttrId id) const;
  const AttrInfo* attr(std::string_view attrName) const;
  // The construction argument; null for a type without one.
  const AttrInfo* key() const;
};

// Built from the table of E, once.
template <class E>
const TypeInfo& typeInfoOf();

namespace detail {

// The accessors of one row, each a function of its own.
template <class E, size_t at>
struct RowAccess {
  static constexpr auto row = E::attributes.template row<at>();

  static Value get(const EntityBase& entity) {
    const E& self = static_cast<const E&>(entity);
    if constexpr (requires { self.*row.member; }) {
      return valueFrom(self.*row.member);
    } else {
      return valueFrom((self.*row.get)());
    }
  }
  static void set(EntityBase& entity, const Value& value) {
    E& self = static_cast<E&>(entity);
    using V = std::remove_cvref_t<decltype(self.*row.member)>;
    (self.*row.set)(typedFrom<V>(value));
  }

  template <class V>
  static constexpr void valued(AttrInfo& info) {
    if constexpr (Valued<V>) {
      info.get = &get;
      info.value = valueKind<V>;
      if constexpr (requires { row.set; }) info.set = &set;
    }
  }
  static constexpr AttrInfo info(AttrId id) {
    AttrInfo info{.id = id, .name = row.name, .kind = row.kind};
    if constexpr (requires { row.member; }) {
      valued<std::remove_cvref_t<decltype(std::declval<const E&>().*row.member)>>(info);
    } else if constexpr (requires { row.get; }) {
      valued<std::remove_cvref_t<decltype((std::declval<const E&>().*row.get)())>>(info);
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
  static constexpr TypeInfo info{E::entityTypeName, Access::attrs, collections};
  return info;
}

}  // namespace Mox
