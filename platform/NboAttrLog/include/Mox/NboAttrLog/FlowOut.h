// What one peer has not been sent yet of one entity and of its members: a bit for each attribute,
// the keys of members that came or went, and where an interrupted walk goes on.
//
// It holds no values: what is sent later is read later, so that many changes become one. An entity
// of which everything has been sent needs none, and most have none.
#pragma once

#include <map>
#include <memory>
#include <optional>

#include <Mox/AttrTable.h>
#include <Mox/Export.h>
#include <Mox/TypeInfo.h>
#include <Mox/Types.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC FlowOut {
 public:
  class Members;

  FlowOut() = default;
  // Of an entity of which nothing has been sent.
  static FlowOut everythingOf(const TypeInfo& type);

  // Bit 0 is the attribute after the first: what the first holds travels in the announcement.
  static U32 bitOf(AttrId id);
  U32 dirtyBits() const { return dirty_; }
  bool attrDirty(AttrId id) const { return (dirty_ & bitOf(id)) != 0; }
  void attrDirtyIs(AttrId id) { dirty_ |= bitOf(id); }
  void attrDirtyDel(AttrId id) { dirty_ &= ~bitOf(id); }
  bool hasDirtyAttributes() const;

  // Of the members; made when it is asked for. Null where nothing is to be remembered.
  Members& members();
  const Members* membersIfAny() const { return members_.get(); }
  void membersDel() { members_.reset(); }

 private:
  U32 dirty_ = 0;
  std::unique_ptr<Members> members_;
};

class MOX_PUBLIC FlowOut::Members {
 public:
  // Keys of members whose coming or going is still to be sent, in ascending order.
  const std::map<U32, bool>& dirty() const { return dirty_; }
  void dirtyIs(U32 key, bool value);
  void dirtyDel(U32 key) { dirty_.erase(key); }

  // The key at which an interrupted walk goes on.
  std::optional<U32> bookmark() const { return bookmark_; }
  void bookmarkIs(std::optional<U32> key) { bookmark_ = key; }

  // Members that the peer has, with what it lacks of each.
  std::map<U32, FlowOut>& flows() { return flows_; }
  // Where the round through them goes on.
  U32 nextFlow() const { return nextFlow_; }
  void nextFlowIs(U32 key) { nextFlow_ = key; }

  // A walk that names every member, so that the peer can drop the others.
  bool whole() const { return whole_; }
  // Such a walk still goes through the collection itself, from the bookmark on.
  bool walking() const { return walking_; }
  void wholeIs() { whole_ = walking_ = true; }
  void walkingDel() { walking_ = false; }
  void wholeDel() { whole_ = walking_ = false; }
  // The walk's begin has been sent, and its last end has not.
  bool begun() const { return begun_; }
  void begunIs(bool begun) { begun_ = begun; }

  // Whether the member's record is still to come, so that nothing inside it needs remembering.
  bool covers(U32 key) const;
  bool hasKeys() const { return whole_ || begun_ || !dirty_.empty(); }
  bool empty() const { return !hasKeys() && flows_.empty(); }

 private:
  std::map<U32, bool> dirty_;
  std::map<U32, FlowOut> flows_;
  std::optional<U32> bookmark_;
  U32 nextFlow_ = 0;
  bool whole_ = false;
  bool walking_ = false;
  bool begun_ = false;
};

}  // namespace Mox::NboAttrLog
