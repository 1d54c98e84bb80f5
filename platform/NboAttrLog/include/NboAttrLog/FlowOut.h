// The part of one entity and of its members that has not been sent to one peer yet: a bit for each
// changed attribute, the keys of members that came or went, and where an interrupted walk goes on.
//
// It holds no values: they are read when they are sent, so that many changes become one. An entity
// needs no FlowOut once everything of it has been sent, and most entities have none.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <Mox/AttrTable.h>
#include <Mox/HashMap.h>
#include <Mox/TypeInfo.h>
#include <MoxBase/Export.h>
#include <MoxBase/PoolAllocator.h>
#include <MoxBase/Types.h>
#include <NboAttrLog/WalkState.h>

namespace Mox::NboAttrLog {

class MOX_PUBLIC FlowOut {
 public:
  class Members;

  // The attributes after the first for which there are dirty bits: of an entity, and of a leaf,
  // which is a member without members of its own.
  static constexpr size_t attrBits = 64;
  static constexpr size_t leafAttrBits = 31;

  FlowOut() = default;
  explicit FlowOut(U64 dirty) : dirty_(dirty) {}
  FlowOut(FlowOut&&) = default;
  FlowOut& operator=(FlowOut&& other) noexcept;
  ~FlowOut();
  // For an entity that the peer has not been sent.
  static FlowOut everythingOf(const TypeInfo& type);

  // Whether an attribute is sent at all. The peer computes derived ones itself and learns the key
  // from the announcement.
  static bool flows(const AttrInfo& attr);

  // Bit 0 is the attribute after the first: the value of the first is in the announcement.
  static U64 bitOf(AttrId id);
  U64 dirtyBits() const { return dirty_; }
  void dirtyBitsAdd(U64 bits) { dirty_ |= bits; }
  bool attrDirty(AttrId id) const { return (dirty_ & bitOf(id)) != 0; }
  void attrDirtyIs(AttrId id) { dirty_ |= bitOf(id); }
  void attrDirtyDel(AttrId id) { dirty_ &= ~bitOf(id); }
  bool hasDirtyAttributes() const;

  // The state of the members, made on the first call. Null while there is nothing to remember.
  Members& members();
  const Members* membersIfAny() const { return members_.get(); }
  // Forgets it. There may be a million keys, for each of many peers: their memory is given back in
  // steps.
  void membersDel();
  // Gives back the memory of up to so many keys that were forgotten; false when none is left.
  // Called with every change that is remembered, so that it cannot pile up.
  static bool giveBack(size_t keys);

 private:
  U64 dirty_ = 0;
  std::unique_ptr<Members> members_;
};

// Members that have members of their own need a FlowOut each, in key order, so that a walk through
// a million of them can stop and go on. Leaves, the most numerous entities, need a number each.
class MOX_PUBLIC FlowOut::Members {
  template <class V>
  using Tree = std::map<U32, V, std::less<>, PoolAllocator<std::pair<const U32, V>>>;

 public:
  using Dirty = Tree<bool>;
  using Flows = Tree<FlowOut>;

  static void* operator new(size_t bytes) { return poolNew(bytes); }
  static void operator delete(void* members, size_t bytes) { poolDelete(members, bytes); }

  // Keys of members that came or went and have not been sent, in ascending order.
  const Dirty& dirty() const;
  void dirtyIs(U32 key, bool value);
  void dirtyDel(U32 key);

  // The key at which an interrupted walk goes on.
  std::optional<U32> bookmark() const;
  void bookmarkIs(std::optional<U32> key);

  // Members that the peer has, each with the part that has not been sent.
  Flows& flows();
  // The key at which the next round through them begins.
  U32 nextFlow() const;
  void nextFlowIs(U32 key);

  // The dirty bits of a leaf, or this bit alone: the leaf came or went and has not been sent.
  static constexpr U32 leafRecord = U32{1} << leafAttrBits;
  // The leaves that are remembered. Each leaf that was taken moves the first one on, so that leaves
  // that are taken and remembered again all the time do not hide the others.
  std::vector<U32> leafKeys() const;
  // Adds the bits to those that are remembered of the leaf.
  void leafIs(U32 key, U64 bits);
  // Forgets the leaf; its bits.
  U32 leafTake(U32 key);

  WalkState walk() const { return walk_; }
  // A whole walk becomes necessary.
  void wholeDueIs() { walk_ = WalkState::wholeDue; }
  // The stream was full there, before everything was sent.
  void walkStopped(WalkStop stop) { walk_ = nextState(walk_, stop); }

  // Whether the member's record has not been sent, so that nothing inside it needs remembering.
  bool covers(U32 key) const;
  // Whether there are records to be sent, which is what a walk is for.
  bool hasRecords() const;
  // Keys that are remembered because their members came or went.
  size_t records() const { return dirty().size() + leafRecords_; }
  bool empty() const;

 private:
  friend class FlowOut;

  // The keys in the trees, which take long to give back; gives back up to so many.
  size_t keysInTrees() const;
  void keysDel(size_t most);
  struct LeafKey {
    explicit LeafKey(U32 v) : key(v) {}
    U32 value() const { return key; }
    U32 key;
  };
  // For collections whose members have members; leaves do without.
  struct Inner {
    static void* operator new(size_t bytes) { return poolNew(bytes); }
    static void operator delete(void* inner, size_t bytes) { poolDelete(inner, bytes); }

    Dirty dirty;
    Flows flows;
    std::optional<U32> bookmark;
    U32 nextFlow = 0;
  };
  Inner& inner();

  std::unique_ptr<Inner> inner_;
  HashMap<LeafKey, U32> leaves_;
  U32 leafRecords_ = 0;
  U32 leavesTaken_ = 0;
  WalkState walk_ = WalkState::idle;
};

}  // namespace Mox::NboAttrLog
