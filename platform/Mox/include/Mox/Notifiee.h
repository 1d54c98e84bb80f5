// A notifiee is told of the changes of one entity, before the setter returns.
//
// It may unregister itself or others, or let the entity go, while it is being told; one that is
// added during a notification is told from the next one on. A notification allocates nothing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include <Mox/AttrTable.h>
#include <MoxBase/Export.h>
#include <MoxBase/Types.h>

namespace Mox {

class EntityBase;

// One who is told, for any entity type: by identifier. NotifieeOf makes calls of named slots of it.
class MOX_PUBLIC Notifiee {
 public:
  Notifiee(const Notifiee&) = delete;
  Notifiee& operator=(const Notifiee&) = delete;

  virtual void onAttr(AttrId id) = 0;
  // A member of a collection came or went, or its key was notified.
  virtual void onMember(AttrId id, U32 key) = 0;
  // A collection as a whole was notified.
  virtual void onCollection(AttrId id) = 0;

 protected:
  Notifiee() = default;
  virtual ~Notifiee() = default;
};

// One who is told of the changes of an entity and of all that it knows below it: what replicates a
// whole tree need not register with each of a million members. See EntityBase::treeHeardIs.
class MOX_PUBLIC TreeNotifiee {
 public:
  TreeNotifiee(const TreeNotifiee&) = delete;
  TreeNotifiee& operator=(const TreeNotifiee&) = delete;

  virtual void onAttr(const EntityBase& entity, AttrId id) = 0;
  virtual void onMember(const EntityBase& entity, AttrId id, U32 key) = 0;
  virtual void onCollection(const EntityBase& entity, AttrId id) = 0;

 protected:
  TreeNotifiee() = default;
  virtual ~TreeNotifiee() = default;
};

// Those who are told by one entity, in the order in which they registered.
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

  // Calls tell(notifiee) for those who were registered when it began and still are.
  template <class F>
  void walk(F&& tell) {
    const Walk here(*this);
    const size_t registered = list_.size();
    for (size_t at = 0; at < registered; ++at) {
      if (list_[at] != nullptr) tell(*list_[at]);
    }
  }

 private:
  // Removals leave holes while a walk is under way; the end of the outermost walk closes them.
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
