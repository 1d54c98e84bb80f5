// What one peer has not been sent yet of one entity and of its members: a bit for each attribute,
// the keys of members that came or went, and where an interrupted walk goes on.
//
// It holds no values: what is sent later is read later, so that many changes become one. An entity
// of which everything has been sent needs none, and most have none.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <Mox/AttrTable.h>
#include <Mox/HashMap.h>
#include <Mox/TypeInfo.h>
#include <MoxBase/Export.h>
#include <MoxBase/Types.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC FlowOut {
 public:
  class Members;

  FlowOut() = default;
  explicit FlowOut(U32 dirty) : dirty_(dirty) {}
  // Of an entity of which nothing has been sent.
  static FlowOut everythingOf(const TypeInfo& type);

  // Whether an attribute is sent at all: what a peer learns otherwise, or computes itself, is not.
  static bool flows(const AttrInfo& attr);

  // Bit 0 is the attribute after the first: what the first holds travels in the announcement.
  static U32 bitOf(AttrId id);
  U32 dirtyBits() const { return dirty_; }
  void dirtyBitsAdd(U32 bits) { dirty_ |= bits; }
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

// Members that have members of their own need a FlowOut each, in key order, so that a walk through
// a million of them can stop and go on. Leaves, of which there are the most, need a number each.
class MOX_PUBLIC FlowOut::Members {
 public:
  // Keys of members whose coming or going is still to be sent, in ascending order.
  const std::map<U32, bool>& dirty() const;
  void dirtyIs(U32 key, bool value);
  void dirtyDel(U32 key);

  // The key at which an interrupted walk goes on.
  std::optional<U32> bookmark() const;
  void bookmarkIs(std::optional<U32> key);

  // Members that the peer has, with what it lacks of each.
  std::map<U32, FlowOut>& flows();
  // Where the round through them goes on.
  U32 nextFlow() const;
  void nextFlowIs(U32 key);

  // Of a leaf, its dirty bits, or the bit that says that its coming or going is still to be sent.
  static constexpr U32 leafRecord = U32{1} << 31;
  // Those that are remembered. Each that was taken moves the first one on, so that those that are
  // taken and remembered again all the time do not hide the others.
  std::vector<U32> leafKeys() const;
  void leafIs(U32 key, U32 bits);
  // Its bits, which are forgotten.
  U32 leafTake(U32 key);

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
  // The stream was full before the end of a walk. Keys and what is inside members take turns at
  // being first then, so that neither waits for ever for the other.
  bool interrupted() const { return interrupted_; }
  bool insideFirst() const { return insideFirst_; }
  void interruptedIs() {
    interrupted_ = true;
    insideFirst_ = !insideFirst_;
  }

  // Whether the member's record is still to come, so that nothing inside it needs remembering.
  bool covers(U32 key) const;
  // Whether there are records to be sent, which is what a transaction is for.
  bool hasRecords() const;
  // Keys of which it is remembered that they came or went.
  size_t records() const { return dirty().size() + leafRecords_; }
  bool empty() const;

 private:
  struct LeafKey {
    explicit LeafKey(U32 v) : key(v) {}
    U32 value() const { return key; }
    U32 key;
  };
  struct Inner {
    std::map<U32, bool> dirty;
    std::map<U32, FlowOut> flows;
    std::optional<U32> bookmark;
    U32 nextFlow = 0;
  };
  Inner& inner();

  std::unique_ptr<Inner> inner_;
  HashMap<LeafKey, U32> leaves_;
  U32 leafRecords_ = 0;
  U32 leavesTaken_ = 0;
  bool whole_ = false;
  bool walking_ = false;
  bool begun_ = false;
  bool interrupted_ = false;
  bool insideFirst_ = false;
};

}  // namespace Mox::NboAttrLog
