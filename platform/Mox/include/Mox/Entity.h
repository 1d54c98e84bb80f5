// An entity: a counted, notifying object whose attributes are the rows of one table.
//
// Setters: an unchanged value does nothing; otherwise the value is stored and the notifiees are
// notified, in the order of their registration, before the setter returns. Collections:
// find-or-create, delete by key, by iterator, all; each change is notified with its key. Without
// notifiees a change costs one comparison.
//
//   class QuerierSourceStatus final : public Mox::Entity<QuerierSourceStatus> {
//    public:
//     class NotifieeConst : public Mox::NotifieeOf<QuerierSourceStatus> { ... slots ... };
//     void expiredIs(bool v) { set<&Self::expired_>(v); }
//     static constexpr Mox::AttrTable attributes{...};
//   };
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <Mox/AttrTable.h>
#include <Mox/Notifiee.h>
#include <Mox/Object.h>
#include <Mox/TypeInfo.h>
#include <MoxBase/Export.h>
#include <MoxBase/Ptr.h>
#include <MoxBase/Types.h>

namespace Mox::NboAttrLog {
class EntitySa;  // the adapter between entities and the attribute log, for types to name
}

namespace Mox {

// What every entity is, whatever its type.
class MOX_PUBLIC EntityBase : public Object {
 public:
  static constexpr const char* valueTypeName = "Mox::Entity";

  // The entity's own name; empty where it is found by its key or its owner.
  virtual std::string entityName() const = 0;
  // The key under which a parent holds this entity; 0 for an entity without a key.
  virtual U32 key() const = 0;
  // The same as text; empty for an entity without a key.
  virtual std::string keyText() const = 0;

  // The qualified name of the type, for instance "Gmp::Igmp::QuerierStatus".
  const char* typeName() const { return type().name; }
  // The name of an attribute of this type; null for an unknown identifier.
  const char* attrName(AttrId id) const;

  // The entity whose collection this one is a member of; null for none.
  EntityBase* parent() const { return parent_; }
  // The collection attribute of the parent that holds this entity; empty for none.
  std::string parentAttrName() const;
  // The path from the outermost parent, for instance "vlan10" or "QuerierStatus/group[239.1.1.1]".
  std::string fullName() const;
  // This entity itself, as the attribute of that name.
  const EntityBase* entity() const { return this; }

  // Called by the collection that takes this entity in or removes it.
  void parentIs(EntityBase* parent, AttrId attr) {
    parent_ = parent;
    parentAttr_ = static_cast<U16>(attr);
    if (parent != nullptr) treeWatched_ = parent->treeWatched_;
  }

  // Those that are notified of this entity's own changes, in the order of their registration.
  const NotifieeList<Notifiee>& notifieeList() const;
  void notifieeAdd(Notifiee* notifiee) const;
  void notifieeRemove(const Notifiee* notifiee) const;

  // Tree notifiees register with the outermost entity. They are notified of its changes, of the
  // changes of members that are added below it from then on, and of those of earlier members that
  // have been marked as watched: the code that walks the tree marks what it has seen, and
  // registering needs no walk.
  void treeNotifieeAdd(TreeNotifiee* notifiee) const;
  void treeNotifieeRemove(const TreeNotifiee* notifiee) const;
  void treeWatchedIs() const { treeWatched_ = true; }

 protected:
  EntityBase() = default;
  ~EntityBase() override;

  bool isWatched() const { return treeWatched_ || notifiees_ != nullptr; }
  void attrNotify(AttrId id) const;
  void memberNotify(AttrId id, U32 key) const;
  void memberGoneNotify(AttrId id, const EntityBase& member) const;
  void collectionNotify(AttrId id) const;

 private:
  struct Notifiees {
    NotifieeList<Notifiee> own;
    NotifieeList<TreeNotifiee> tree;
  };
  Notifiees& notifieesMade() const;
  template <class F, class G>
  void notifyAll(F&& notifyOwn, G&& notifyTree) const;

  U16 parentAttr_ = 0;
  mutable bool treeWatched_ = false;              // by tree notifiees of the outermost entity
  mutable std::unique_ptr<Notifiees> notifiees_;  // most entities have none
  EntityBase* parent_ = nullptr;
};

// Makes of "attribute id changed" the call of the slot that the table names for it, and keeps the
// entity alive while it is watched. E's own NotifieeConst derives from it and declares the slots.
template <class E>
class NotifieeOf : public Notifiee {
 public:
  // Watches `entity` from now on; null watches nothing.
  explicit NotifieeOf(Ptr<const E> entity) : entity_(std::move(entity)) { add(); }
  ~NotifieeOf() override { remove(); }

  const Ptr<const E>& notifier() const { return entity_; }
  // Watches another entity, or, given null, becomes inert.
  void notifierIs(Ptr<const E> entity) {
    remove();
    entity_ = std::move(entity);
    add();
  }

  void onAttr(AttrId id) override {
    auto& self = static_cast<typename E::NotifieeConst&>(*this);
    E::attributes.forEach([&](AttrId rowId, const auto& row) {
      if constexpr (requires { (self.*row.slot)(); }) {
        if (rowId == id) (self.*row.slot)();
      }
    });
  }
  void onMember(AttrId id, U32 key) override {
    auto& self = static_cast<typename E::NotifieeConst&>(*this);
    E::attributes.forEach([&](AttrId rowId, const auto& row) {
      using Row = std::remove_cvref_t<decltype(row)>;
      if constexpr (requires { typename Row::KeyType; }) {
        if (rowId == id) {
          if constexpr (requires { row.immediate; }) (self.*row.immediate)();
          (self.*row.slot)(typename Row::KeyType(key));
        }
      }
    });
  }
  void onCollection(AttrId id) override {
    auto& self = static_cast<typename E::NotifieeConst&>(*this);
    E::attributes.forEach([&](AttrId rowId, const auto& row) {
      if constexpr (requires { row.collection; }) {
        if (rowId == id) (self.*row.whole)();
      }
    });
  }

 private:
  void add() {
    if (entity_) entity_->notifieeAdd(this);
  }
  void remove() {
    if (entity_) entity_->notifieeRemove(this);
  }
  Ptr<const E> entity_;
};

template <class Self>
class Entity : public EntityBase {
 public:
  const TypeInfo& type() const final { return typeInfoOf<Self>(); }
  std::string entityName() const final { return textOfName(self().name()); }
  U32 key() const final {
    U32 number = 0;
    Self::attributes.forEach([&](AttrId, const auto& row) {
      if constexpr (std::remove_cvref_t<decltype(row)>::kind == AttrKind::key &&
                    requires { (self().*row.member).value(); }) {
        number = (self().*row.member).value();
      }
    });
    return number;
  }
  std::string keyText() const final {
    std::string text;
    Self::attributes.forEach([&](AttrId, const auto& row) {
      if constexpr (std::remove_cvref_t<decltype(row)>::kind == AttrKind::key) {
        appendText(text, self().*row.member);
      }
    });
    return text;
  }

 protected:
  template <auto Member, class V>
  void set(V value) {
    auto& stored = self().*Member;
    if (stored == value) return;
    stored = std::move(value);
    notify<Member>();
  }

  // Adds with wraparound; the new value.
  template <auto Member, class V>
  V inc(V by) {
    V& stored = self().*Member;
    if (by == 0) return stored;
    stored = static_cast<V>(stored + by);
    const V counted = stored;
    notify<Member>();
    return counted;
  }

  // Moves a timer to another wheel, with its time.
  template <auto Timer, class Wheel>
  void setWheel(Wheel wheel) {
    auto& timer = self().*Timer;
    if (timer.wheel() == wheel) return;
    timer.wheelIs(std::move(wheel));
    notify<Timer>();
  }

  template <auto Member>
  void notify() {
    if (isWatched()) [[unlikely]] {
      attrNotify(Self::attributes.template idOf<Member>());
    }
  }
  template <auto Member, class K>
  void notifyMember(K key) {
    if (isWatched()) [[unlikely]] {
      memberNotify(Self::attributes.template idOf<Member>(), key.value());
    }
  }
  template <auto Member>
  void notifyCollection() {
    if (isWatched()) [[unlikely]] {
      collectionNotify(Self::attributes.template idOf<Member>());
    }
  }

  // The member of that key, or null.
  template <auto Member, class K>
  auto member(K key) const {
    const auto* found = (self().*Member).find(key);
    return found != nullptr ? *found : std::remove_cvref_t<decltype(*found)>();
  }

  // The member of that key, made if it is not there.
  template <auto Member, class K>
  auto memberIs(K key) {
    auto& collection = self().*Member;
    if (const auto* found = collection.find(key)) return *found;
    using MemberPtr = std::remove_cvref_t<decltype(*collection.find(key))>;
    MemberPtr added = makePtr<typename MemberPtr::element_type>(key);
    added->parentIs(this, Self::attributes.template idOf<Member>());
    collection.insert(key, added);
    notifyMember<Member>(key);
    return added;
  }

  // Removes the member of that key and returns it; null, without a notification, when there is
  // none.
  template <auto Member, class K>
  auto memberDel(K key) {
    auto& collection = self().*Member;
    const auto* found = collection.find(key);
    auto removed = found != nullptr ? *found : std::remove_cvref_t<decltype(*found)>();
    if (removed) {
      collection.erase(key);
      removed->parentIs(nullptr, 0);
      if (isWatched()) memberGoneNotify(Self::attributes.template idOf<Member>(), *removed);
      notifyMember<Member>(key);
    }
    return removed;
  }

  // Sets of keys are named by the function that returns them, as some are made when they are first
  // needed.
  template <auto Keys, class S, class K>
  void setIs(S& keys, K key, bool value) {
    const bool* found = keys.find(key);
    if (found != nullptr && *found == value) return;
    keys.insert(key, value);
    notifyMember<Keys>(key);
  }
  template <auto Keys, class S, class K>
  void setDel(S& keys, K key) {
    if (keys.erase(key)) notifyMember<Keys>(key);
  }
  template <auto Keys, class S>
  void setDelAll(S& keys) {
    if (keys.empty()) return;
    const Ptr<Self> alive(&self());
    for (const auto key : keys.keys()) setDel<Keys>(keys, key);
  }

 public:
  // The collection of the table's row at `place`, for TypeInfo.
  template <size_t place>
  struct CollectionAccess {
    static constexpr auto row = Self::attributes.template row<place>();
    using K = typename decltype(row)::KeyType;
    // Members that only their owner makes and removes have a row of another kind, as have sets.
    static constexpr bool owned = requires { row.members; };
    static constexpr bool isSet = requires { row.del; };

    static const auto& members(const EntityBase& entity) {
      const Self& self = static_cast<const Self&>(entity);
      if constexpr (isSet) {
        return (self.*row.keys)();
      } else if constexpr (owned) {
        return self.*row.members;
      } else {
        return self.*row.collection;
      }
    }
    using Map = std::remove_cvref_t<decltype(members(std::declval<const EntityBase&>()))>;
    using Held = std::remove_cvref_t<decltype(*std::declval<const Map&>().find(std::declval<K>()))>;
    static constexpr const char* memberTypeName = isSet ? typeNameOf<K>() : typeNameOf<Held>();
    static constexpr bool ordered = requires(const Map& m, K k) { m.lowerBound(k); };

    static size_t size(const EntityBase& entity) { return members(entity).size(); }
    static EntityBase* find([[maybe_unused]] const EntityBase& entity, [[maybe_unused]] U32 key) {
      if constexpr (isSet) {
        return nullptr;
      } else {
        const auto* found = members(entity).find(K(key));
        return found == nullptr ? nullptr : found->get();
      }
    }
    static Ptr<EntityBase> add(EntityBase& entity, U32 key) {
      Self& self = static_cast<Self&>(entity);
      if constexpr (isSet) {
        (self.*row.is)(K(key), true);
        return nullptr;
      } else {
        return self.template memberIs<row.collection>(K(key));
      }
    }
    static void remove(EntityBase& entity, U32 key) {
      Self& self = static_cast<Self&>(entity);
      if constexpr (isSet) {
        (self.*row.del)(K(key));
      } else {
        self.template memberDel<row.collection>(K(key));
      }
    }
    static U64 walk(const EntityBase& entity, U64 bookmark, size_t most,
                    const std::function<void(U32)>& use) {
      return members(entity).walk(bookmark, most, [&](K key, const auto&) { use(key.value()); });
    }
    static std::vector<U32> keys(const EntityBase& entity) {
      std::vector<U32> all;
      all.reserve(size(entity));
      walk(entity, 0, static_cast<size_t>(-1), [&](U32 key) { all.push_back(key); });
      return all;
    }
    static std::optional<U32> next(const EntityBase& entity, U32 from) {
      const auto at = members(entity).lowerBound(K(from));
      if (at == members(entity).end()) return {};
      return at.key().value();
    }
    static std::string keyText(U32 key) { return detail::plainText(K(key)); }
    static std::optional<U32> keyOf(std::string_view text) {
      const auto parsed = K::parse(text);
      if (!parsed) return {};
      return parsed->value();
    }
    static constexpr CollectionInfo info() {
      CollectionInfo made{.id = static_cast<AttrId>(Self::attributes.first + place),
                          .name = row.name,
                          .ordered = ordered,
                          .size = &size,
                          .find = &find,
                          .keys = &keys,
                          .walk = &walk,
                          .keyText = &keyText};
      if constexpr (!isSet) made.memberType = &typeInfoOf<typename Held::element_type>;
      if constexpr (!owned) {
        made.add = &add;
        made.remove = &remove;
      }
      if constexpr (ordered) made.next = &next;
      if constexpr (requires(std::string_view text) { K::parse(text)->value(); }) {
        made.keyOf = &keyOf;
      }
      return made;
    }
  };

 private:
  template <class N>
  static std::string textOfName(const N& name) {
    if constexpr (requires { name.string(); }) {
      return name.string();
    } else {
      return std::string(name);
    }
  }
  Self& self() { return static_cast<Self&>(*this); }
  const Self& self() const { return static_cast<const Self&>(*this); }
};

}  // namespace Mox
