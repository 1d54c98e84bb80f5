// A notifiee is notified of the changes of one entity, before the setter returns.
//
// It may unregister itself or others, or release the entity, while it is notified; one that is
// added during a notification is notified from the next one on. A notification allocates nothing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include <Mox/AttrTable.h>
#include <MoxBase/Export.h>
#include <MoxBase/Types.h>

namespace Mox {

class EntityBase;

// A notifiee of any entity type, called with identifiers. NotifieeOf turns them into calls of named
// slots.
class MOX_PUBLIC Notifiee {
 public:
  Notifiee(const Notifiee&) = delete;
  Notifiee& operator=(const Notifiee&) = delete;

  virtual void onAttr(AttrId id) = 0;
  // A member of a collection was added or removed, or its key was notified.
  virtual void onMember(AttrId id, U32 key) = 0;
  // A collection as a whole was notified.
  virtual void onCollection(AttrId id) = 0;

 protected:
  Notifiee() = default;
  virtual ~Notifiee() = default;
};

// A notifiee of the changes of an entity and of the members below it: the code that replicates a
// whole tree need not register with each of a million members. See EntityBase::treeWatchedIs.
class MOX_PUBLIC TreeNotifiee {
 public:
  TreeNotifiee(const TreeNotifiee&) = delete;
  TreeNotifiee& operator=(const TreeNotifiee&) = delete;

  virtual void onAttr(const EntityBase& entity, AttrId id) = 0;
  virtual void onMember(const EntityBase& entity, AttrId id, U32 key) = 0;
  virtual void onCollection(const EntityBase& entity, AttrId id) = 0;
  // The member has left that collection of the entity and still has its values; onMember follows.
  virtual void onMemberGone(const EntityBase& /*entity*/, AttrId /*id*/,
                            const EntityBase& /*member*/) {}

 protected:
  TreeNotifiee() = default;
  virtual ~TreeNotifiee() = default;
};

// The notifiees of one entity, in the order in which they registered.
template <class N>
class NotifieeList {
 public:
  void add(N* notifiee) { list_.push_back(notifiee); }
  void remove(const N* notifiee) {
    const auto found = std::find(list_.begin(), list_.end(), notifiee);
    if (found == list_.end()) return;
    if (walks_ == 0) {
      list_.erase(found);
    } else {
      *found = nullptr;
      holes_ = true;
    }
  }
  size_t size() const {
    return list_.size() - static_cast<size_t>(std::count(list_.begin(), list_.end(), nullptr));
  }
  bool empty() const { return list_.empty(); }

  // Calls notify(notifiee) for those that were registered when it began and still are.
  template <class F>
  void walk(F&& notify) {
    const Walk here(*this);
    const size_t registered = list_.size();
    for (size_t at = 0; at < registered; ++at) {
      if (list_[at] != nullptr) notify(*list_[at]);
    }
  }

 private:
  // Removals leave holes during a walk; the end of the outermost walk closes them.
  struct Walk {
    explicit Walk(NotifieeList& list) : list_(list) { ++list_.walks_; }
    ~Walk() {
      if (--list_.walks_ == 0 && list_.holes_) list_.closeHoles();
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    NotifieeList& list_;
  };
  void closeHoles() {
    std::erase(list_, nullptr);
    holes_ = false;
  }

  std::vector<N*> list_;
  U32 walks_ = 0;
  bool holes_ = false;
};

}  // namespace Mox
