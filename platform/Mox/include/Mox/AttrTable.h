// The one table that an entity type has: a row for each attribute, in the order of identifiers.
//
// Setters' notification, access by identifier or name, printing, iteration and replication walk
// these rows; nothing else lists attributes. A row's place is its identifier, from 257 unless the
// table says otherwise. Code distinguishes the kinds of rows by the members that they have:
//
//   Key         member                   construction argument, never changes
//   Attr        member, set, slot        stored; its setter notifies `slot`
//   Counter     member, set, slot, inc   stored; also counts
//   Timer       member, set, slot        a timer; its setter moves it to another wheel
//   Stored      member, set              stored; its setter notifies nobody
//   Tally       member, set, inc         the same for a counter
//   Derived     get                      computed on reading
//   Collection  collection, slot         members keyed by address; `slot` is called with one key
//   Members     members, slot            members that only their owner makes and removes
//   Set         keys, is, del, slot      keys that are there or not
//   Constant    get                      a fixed value
//   Owner       get                      the object that this one is a part of
//   Part        member                   a part of the object that cannot be written
//   Operation   call                     can be called, with one argument at most
//
// A row whose Seconds are a time on the activity clock says so by Unit::time, one of bytes by
// Unit::bytes.
//
//   static constexpr Mox::AttrTable attributes{
//       Mox::Key{"groupAddr", &Self::groupAddr_},
//       Mox::Attr{"filterMode", &Self::filterMode_, &Self::filterModeIs,
//                 &NotifieeConst::onFilterMode}};
#pragma once

#include <cstddef>
#include <tuple>
#include <utility>

#include <MoxBase/Types.h>

namespace Mox {

using AttrId = U32;
inline constexpr AttrId entityFirstAttrId = 257;

enum class AttrKind : U8 { key, stored, counter, derived, collection, constant, part, operation };

// What a value counts, where its type does not say it: a value of type Seconds is a duration.
enum class Unit : U8 { byType, seconds, time, bytes };

template <class K, class V>
class HashMap;
template <class T>
class Ptr;

template <class E, class V>
struct Key {
  constexpr Key(const char* n, V E::*m) : name(n), member(m) {}
  static constexpr AttrKind kind = AttrKind::key;
  const char* name;
  V E::*member;
};

template <class E, class V, class Arg, class N>
struct Attr {
  constexpr Attr(const char* n, V E::*m, void (E::*s)(Arg), void (N::*sl)(), Unit u = Unit::byType)
      : name(n), member(m), set(s), slot(sl), unit(u) {}
  static constexpr AttrKind kind = AttrKind::stored;
  const char* name;
  V E::*member;
  void (E::*set)(Arg);
  void (N::*slot)();
  Unit unit;
};

template <class E, class V, class N>
struct Counter {
  constexpr Counter(const char* n, V E::*m, void (E::*s)(V), V (E::*i)(V), void (N::*sl)())
      : name(n), member(m), set(s), inc(i), slot(sl) {}
  static constexpr AttrKind kind = AttrKind::counter;
  const char* name;
  V E::*member;
  void (E::*set)(V);
  V (E::*inc)(V);
  void (N::*slot)();
};

// A timer reactor. It is set to a wheel; its value is the time at which it is due.
template <class E, class V, class Wheel, class N>
struct Timer {
  constexpr Timer(const char* n, V E::*m, void (E::*s)(Wheel), void (N::*sl)())
      : name(n), member(m), set(s), slot(sl) {}
  static constexpr AttrKind kind = AttrKind::part;
  static constexpr Unit unit = Unit::time;
  const char* name;
  V E::*member;
  void (E::*set)(Wheel);
  void (N::*slot)();
};

template <class E, class V, class Arg>
struct Stored {
  constexpr Stored(const char* n, V E::*m, void (E::*s)(Arg), Unit u = Unit::byType)
      : name(n), member(m), set(s), unit(u) {}
  static constexpr AttrKind kind = AttrKind::stored;
  const char* name;
  V E::*member;
  void (E::*set)(Arg);
  Unit unit;
};

template <class E, class V>
struct Tally {
  constexpr Tally(const char* n, V E::*m, void (E::*s)(V), V (E::*i)(V))
      : name(n), member(m), set(s), inc(i) {}
  static constexpr AttrKind kind = AttrKind::counter;
  const char* name;
  V E::*member;
  void (E::*set)(V);
  V (E::*inc)(V);
};

template <class E, class V>
struct Derived {
  constexpr Derived(const char* n, V (E::*g)() const) : name(n), get(g) {}
  static constexpr AttrKind kind = AttrKind::derived;
  const char* name;
  V (E::*get)() const;
};

template <class E, class V>
struct Constant {
  constexpr Constant(const char* n, V (E::*g)() const) : name(n), get(g) {}
  static constexpr AttrKind kind = AttrKind::constant;
  const char* name;
  V (E::*get)() const;
};

// A change of one member calls `immediate` and then, with the member's key, `slot`; a notification
// of the collection as a whole calls `whole`.
template <class E, class C, class K, class N>
struct Collection {
  constexpr Collection(const char* n, C E::*c, void (N::*sl)(K), void (N::*im)(), void (N::*wh)())
      : name(n), collection(c), slot(sl), immediate(im), whole(wh) {}
  static constexpr AttrKind kind = AttrKind::collection;
  using KeyType = K;
  const char* name;
  C E::*collection;
  void (N::*slot)(K);
  void (N::*immediate)();
  void (N::*whole)();
};

template <class E, class K, class M, class N>
struct Members {
  constexpr Members(const char* n, HashMap<K, Ptr<M>> E::*m, void (N::*sl)(K))
      : name(n), members(m), slot(sl) {}
  static constexpr AttrKind kind = AttrKind::collection;
  using KeyType = K;
  const char* name;
  HashMap<K, Ptr<M>> E::*members;
  void (N::*slot)(K);
};

// The object that this one is a part of; its class is not complete where its parts are declared.
template <class E, class V>
struct Owner {
  constexpr Owner(const char* n, V (E::*g)() const, const char* t) : name(n), get(g), typeName(t) {}
  static constexpr AttrKind kind = AttrKind::part;
  const char* name;
  V (E::*get)() const;
  const char* typeName;
};

template <class E, class K, class N>
struct Set {
  using KeyType = K;
  using Keys = HashMap<K, bool>;
  constexpr Set(const char* n, const Keys& (E::*g)() const, void (E::*i)(K, bool), void (E::*d)(K),
                void (N::*sl)(K))
      : name(n), keys(g), is(i), del(d), slot(sl) {}
  static constexpr AttrKind kind = AttrKind::collection;
  const char* name;
  const Keys& (E::*keys)() const;
  void (E::*is)(K, bool);
  void (E::*del)(K);
  void (N::*slot)(K);
};

// A part that the object is built with and that only its own methods change.
template <class E, class V>
struct Part {
  constexpr Part(const char* n, V E::*m) : name(n), member(m) {}
  static constexpr AttrKind kind = AttrKind::part;
  const char* name;
  V E::*member;
};

template <class E, class R, class... Arg>
struct Operation {
  static_assert(sizeof...(Arg) <= 1, "an operation takes one argument at most");
  constexpr Operation(const char* n, R (E::*c)(Arg...)) : name(n), call(c) {}
  static constexpr AttrKind kind = AttrKind::operation;
  const char* name;
  R (E::*call)(Arg...);
};

template <AttrId firstId, class... Rows>
class AttrTableFrom {
 public:
  static constexpr AttrId first = firstId;
  static constexpr size_t size = sizeof...(Rows);

  constexpr explicit AttrTableFrom(Rows... rows) : rows_(rows...) {}

  // Calls f(id, row) for each row, in the order of identifiers.
  template <class F>
  constexpr void forEach(F&& f) const {
    call(f, std::index_sequence_for<Rows...>());
  }

  // The row at a place, counted from 0.
  template <size_t at>
  constexpr const auto& row() const {
    return std::get<at>(rows_);
  }

  // The identifier of the attribute stored in `Member`; without such a row it does not compile.
  template <auto Member>
  consteval AttrId idOf() const {
    AttrId found = 0;
    forEach([&](AttrId id, const auto& row) {
      if constexpr (requires { row.member == Member; }) {
        if (row.member == Member) found = id;
      } else if constexpr (requires { row.collection == Member; }) {
        if (row.collection == Member) found = id;
      } else if constexpr (requires { row.members == Member; }) {
        if (row.members == Member) found = id;
      } else if constexpr (requires { row.keys == Member; }) {
        if (row.keys == Member) found = id;
      }
    });
    if (found == 0) throw "this member has no row in the attribute table";
    return found;
  }

  // The name of an attribute; null for an identifier that the table does not have.
  constexpr const char* nameOf(AttrId wanted) const {
    const char* name = nullptr;
    forEach([&](AttrId id, const auto& row) {
      if (id == wanted) name = row.name;
    });
    return name;
  }

 private:
  template <class F, size_t... at>
  constexpr void call(F&& f, std::index_sequence<at...>) const {
    (f(static_cast<AttrId>(firstId + at), std::get<at>(rows_)), ...);
  }
  std::tuple<Rows...> rows_;
};

template <AttrId firstId, class... Rows>
constexpr auto attrTableFrom(Rows... rows) {
  return AttrTableFrom<firstId, Rows...>(rows...);
}

// A field of a value, which is copied as a whole: it has neither setter nor notifiees.
template <class E, class V>
struct Field {
  constexpr Field(const char* n, V E::*m) : name(n), member(m) {}
  const char* name;
  V E::*member;
};

template <class... Rows>
class FieldTable : public AttrTableFrom<1, Rows...> {
 public:
  constexpr explicit FieldTable(Rows... rows) : AttrTableFrom<1, Rows...>(rows...) {}
};

template <class... Rows>
class AttrTable : public AttrTableFrom<entityFirstAttrId, Rows...> {
 public:
  constexpr explicit AttrTable(Rows... rows) : AttrTableFrom<entityFirstAttrId, Rows...>(rows...) {}
};

}  // namespace Mox
