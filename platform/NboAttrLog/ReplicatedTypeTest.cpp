// The types that may go through the attribute log, and those that must not compile.
#include <NboAttrLog/ReplicatedType.h>

#include <utility>

#include <Mox/Entity.h>
#include <Mox/HashMap.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

template <class Name, class Member, class Set, class Slot, size_t... at>
constexpr auto equalRows(Name name, Member member, Set set, Slot slot, std::index_sequence<at...>) {
  return AttrTable{Constant{"name", name}, ((void)at, Attr{"value", member, set, slot})...};
}

// A type with that many attributes after the first.
template <size_t attrs>
class Wide final : public Entity<Wide<attrs>> {
 public:
  static constexpr const char* entityTypeName = "Test::Wide";
  class NotifieeConst : public NotifieeOf<Wide> {
   public:
    virtual void onValue() {}
  };
  std::string name() const { return {}; }
  void valueIs(U32 v) { value_ = v; }

 private:
  friend class Entity<Wide>;
  U32 value_ = 0;

 public:
  static constexpr auto attributes =
      equalRows(&Wide::name, &Wide::value_, &Wide::valueIs, &NotifieeConst::onValue,
                std::make_index_sequence<attrs>());
};

template <size_t attrs, size_t bits>
constexpr bool fits = ReplicatedType<Wide<attrs>>::template hasBits<bits>;

TEST(ReplicatedTypeTest, entityHasSixtyFourAttributesAfterTheFirstAtMost) {
  EXPECT_TRUE((fits<64, FlowOut::attrBits>));
  EXPECT_FALSE((fits<65, FlowOut::attrBits>));
}

TEST(ReplicatedTypeTest, leafHasThirtyOneAttributesAfterTheFirstAtMost) {
  EXPECT_TRUE((fits<31, FlowOut::leafAttrBits>));
  EXPECT_FALSE((fits<32, FlowOut::leafAttrBits>));
}

// A type with two collections. A copy could not fill one of them, which holds keys alone.
class Sets final : public Entity<Sets> {
 public:
  static constexpr const char* entityTypeName = "Test::Sets";
  using Keys = HashMap<Number, bool>;
  class NotifieeConst : public NotifieeOf<Sets> {
   public:
    virtual void onKey(Number) {}
    virtual void onLeaf(Number) {}
    virtual void onLeafImmediate() {}
    virtual void onLeaf() {}
  };
  std::string name() const { return {}; }
  const Keys& keys() const { return keys_; }
  void keyIs(Number, bool) {}
  void keyDel(Number) {}

 private:
  friend class Entity<Sets>;
  Keys keys_;
  HashMap<Number, Ptr<Leaf>> leaf_;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &Sets::name},
      Set{"key", &Sets::keys, &Sets::keyIs, &Sets::keyDel, &NotifieeConst::onKey},
      Collection{"leaf", &Sets::leaf_, &NotifieeConst::onLeaf, &NotifieeConst::onLeafImmediate,
                 &NotifieeConst::onLeaf},
  };
};

TEST(ReplicatedTypeTest, typeHasOneCollectionAtMost) {
  EXPECT_TRUE(ReplicatedType<Leaf>::hasOneCollection);
  EXPECT_TRUE(ReplicatedType<Root>::hasOneCollection);
  EXPECT_FALSE(ReplicatedType<Sets>::hasOneCollection);
}

TEST(ReplicatedTypeTest, copyCanMakeMembersOfACollectionButNotOfASetOfKeys) {
  EXPECT_TRUE(ReplicatedType<Root>::canMakeMembers);
  EXPECT_FALSE(ReplicatedType<Sets>::canMakeMembers);
}

// Members that have members, in no order.
class Unordered final : public Entity<Unordered> {
 public:
  static constexpr const char* entityTypeName = "Test::Unordered";
  class NotifieeConst : public NotifieeOf<Unordered> {
   public:
    virtual void onNode(Number) {}
    virtual void onNodeImmediate() {}
    virtual void onNode() {}
  };
  std::string name() const { return {}; }

 private:
  friend class Entity<Unordered>;
  HashMap<Number, Ptr<Node>> node_;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &Unordered::name},
      Collection{"node", &Unordered::node_, &NotifieeConst::onNode, &NotifieeConst::onNodeImmediate,
                 &NotifieeConst::onNode},
  };
};

TEST(ReplicatedTypeTest, walkCanBeResumedThroughLeavesAndThroughMembersInKeyOrder) {
  EXPECT_TRUE(canResumeWalk<Node>());
  EXPECT_TRUE(canResumeWalk<Root>());
  EXPECT_FALSE(canResumeWalk<Unordered>());
}

}  // namespace
}  // namespace Mox::NboAttrLog
