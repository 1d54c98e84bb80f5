// A notifiee is told of the changes of one entity, before the setter returns.
//
// It may unregister itself or others, or let the entity go, while it is being told; one that is
// added during a notification is told from the next one on. A notification allocates nothing.
#pragma once

#include <cstddef>
#include <vector>

#include <Mox/AttrTable.h>
#include <Mox/Export.h>
#include <Mox/Types.h>

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

// The notifiees of one entity, in the order in which they registered.
class MOX_PUBLIC NotifieeList {
 public:
  void add(Notifiee* notifiee) { list_.push_back(notifiee); }
  void remove(const Notifiee* notifiee);
  size_t size() const;

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
  struct MOX_PUBLIC Walk {
    explicit Walk(NotifieeList& list) : list_(list) { ++list_.walks_; }
    ~Walk() {
      if (--list_.walks_ == 0 && list_.holes_) list_.closeHoles();
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    NotifieeList& list_;
  };
  void closeHoles();

  std::vector<Notifiee*> list_;
  U32 walks_ = 0;
  bool holes_ = false;
};

}  // namespace Mox
