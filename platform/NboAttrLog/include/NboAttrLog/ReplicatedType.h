// The conditions that an entity type must meet to go through the attribute log. The directory
// asserts them of the type of each entry and of the types below it, so that a table which breaks
// one does not compile.
#pragma once

#include <cstddef>
#include <utility>

#include <Mox/AttrTable.h>
#include <NboAttrLog/FlowOut.h>
#include <NboAttrLog/Frame.h>

namespace Mox::NboAttrLog {

template <class E, class = std::make_index_sequence<E::attributes.size>>
struct ReplicatedType;

template <class E, size_t... at>
struct ReplicatedType<E, std::index_sequence<at...>> {
  template <size_t place>
  static constexpr auto row = E::attributes.template row<place>();

  static constexpr size_t collections =
      (size_t{0} + ... + (row<at>.kind == AttrKind::collection ? 1 : 0));
  static constexpr size_t collectionPlace =
      (size_t{0} + ... + (row<at>.kind == AttrKind::collection ? at : 0));
  // A member's reference names keys alone, so an entity has one collection at most.
  static constexpr bool hasOneCollection = collections <= 1;

  // A copy makes and removes members itself.
  static constexpr bool canMakeMembers =
      ((row<at>.kind != AttrKind::collection || requires { row<at>.collection; }) && ...);

  // Each attribute after the first has a dirty bit of its own.
  template <size_t bits>
  static constexpr bool hasBits =
      E::attributes.first == entityFirstAttrId&& E::attributes.size <= bits + 1;
};

template <class E>
using CollectionOf = typename E::template CollectionAccess<ReplicatedType<E>::collectionPlace>;
template <class E>
using ReplicatedMember = typename CollectionOf<E>::Held::element_type;

// A walk through members that have members of their own goes on at a key.
template <class E>
constexpr bool canResumeWalk() {
  return ReplicatedType<ReplicatedMember<E>>::collections == 0 || CollectionOf<E>::ordered;
}

template <class E, size_t depth = 0>
constexpr void assertReplicated() {
  using Type = ReplicatedType<E>;
  constexpr bool isLeaf = depth != 0 && Type::collections == 0;
  static_assert(depth <= Ref::deepest, "a reference has no room for a key of this depth");
  static_assert(Type::hasOneCollection, "a replicated type has one collection at most");
  static_assert(Type::canMakeMembers, "copies cannot make the members of a replicated collection");
  static_assert(Type::template hasBits < isLeaf ? FlowOut::leafAttrBits : FlowOut::attrBits >,
                "a replicated type has more attributes than there are dirty bits");
  if constexpr (Type::collections == 1 && depth < Ref::deepest) {
    static_assert(canResumeWalk<E>(), "members that have members are replicated in key order");
    assertReplicated<ReplicatedMember<E>, depth + 1>();
  }
}

}  // namespace Mox::NboAttrLog
