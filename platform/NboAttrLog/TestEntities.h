// The entities that the attribute log's tests send: a root with nodes (an ordered collection), and
// nodes with leaves (a hashed one). The root has an attribute of each kind of value.
#pragma once

#include <array>
#include <compare>
#include <string>

#include <Mox/Entity.h>
#include <Mox/Enumeration.h>
#include <Mox/HashMap.h>
#include <Mox/Name.h>
#include <Mox/OrderedMap.h>
#include <MoxBase/Text.h>

namespace Mox::NboAttrLog {

// A key of 32 bits, ordered by its number.
class Number {
 public:
  constexpr Number() = default;
  explicit constexpr Number(U32 value) : value_(value) {}
  constexpr U32 value() const { return value_; }
  friend constexpr auto operator<=>(Number, Number) = default;  // NOLINT(modernize-use-nullptr)

 private:
  U32 value_ = 0;
};
inline void appendText(std::string& out, Number key) { Mox::appendText(out, key.value()); }

enum Mode : U32 { slow = 0, fast = 4 };
constexpr const char* enumerationName(Mode) { return "Test::Mode"; }
constexpr auto enumerators(Mode) {
  return std::array{enumerator(slow, "slow"), enumerator(fast, "fast")};
}

class Leaf final : public Entity<Leaf> {
 public:
  static constexpr const char* entityTypeName = "Test::Leaf";
  class NotifieeConst : public NotifieeOf<Leaf> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onExpired() {}
    virtual void onLevel() {}
  };

  explicit Leaf(Number number) : number_(number) {}
  std::string name() const { return {}; }
  bool expired() const { return expired_; }
  U32 level() const { return level_; }
  void expiredIs(bool v) { set<&Leaf::expired_>(v); }
  void levelIs(U32 v) { set<&Leaf::level_>(v); }

 private:
  friend class Entity<Leaf>;
  Number number_;
  bool expired_ = false;
  U32 level_ = 0;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &Leaf::name}, Key{"number", &Leaf::number_},
      Attr{"expired", &Leaf::expired_, &Leaf::expiredIs, &NotifieeConst::onExpired},  // 259
      Attr{"level", &Leaf::level_, &Leaf::levelIs, &NotifieeConst::onLevel},          // 260
  };
};

class Node final : public Entity<Node> {
 public:
  static constexpr const char* entityTypeName = "Test::Node";
  using LeafMap = HashMap<Number, Ptr<Leaf>>;
  class NotifieeConst : public NotifieeOf<Node> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onUses() {}
    virtual void onLeaf(Number) {}
    virtual void onLeafImmediate() {}
    virtual void onLeaf() {}
  };

  explicit Node(Number number) : number_(number) {}
  std::string name() const { return {}; }
  U32 uses() const { return uses_; }
  Ptr<Leaf> leaf(Number key) const { return member<&Node::leaf_>(key); }
  size_t leaves() const { return leaf_.size(); }
  void usesIs(U32 v) { set<&Node::uses_>(v); }
  U32 usesInc(U32 by) { return inc<&Node::uses_>(by); }
  Ptr<Leaf> leafIs(U32 key) { return memberIs<&Node::leaf_>(Number(key)); }
  Ptr<Leaf> leafDel(U32 key) { return memberDel<&Node::leaf_>(Number(key)); }

 private:
  friend class Entity<Node>;
  Number number_;
  U32 uses_ = 0;
  LeafMap leaf_;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &Node::name}, Key{"number", &Node::number_},
      Collection{"leaf", &Node::leaf_, &NotifieeConst::onLeaf, &NotifieeConst::onLeafImmediate,
                 &NotifieeConst::onLeaf},                                                    // 259
      Counter{"uses", &Node::uses_, &Node::usesIs, &Node::usesInc, &NotifieeConst::onUses},  // 260
  };
};

class Root final : public Entity<Root> {
 public:
  static constexpr const char* entityTypeName = "Test::Root";
  using NodeMap = OrderedMap<Number, Ptr<Node>>;
  class NotifieeConst : public NotifieeOf<Root> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onEnabled() {}
    virtual void onCount() {}
    virtual void onNode(Number) {}
    virtual void onNodeImmediate() {}
    virtual void onNode() {}
    virtual void onTotal() {}
    virtual void onDelay() {}
    virtual void onLabel() {}
    virtual void onMode() {}
    virtual void onAddress() {}
    virtual void onOrigin() {}
  };
  // A value that can be shown, but not made from the text that shows it.
  struct Origin {
    static constexpr const char* valueTypeName = "Test::Origin";
    S32 row = 0;
    friend bool operator==(const Origin&, const Origin&) = default;
    friend S32 shownValue(const Origin& origin) { return origin.row; }
  };

  explicit Root(Name name) : name_(name) {}
  Name name() const { return name_; }
  bool enabled() const { return enabled_; }
  U32 count() const { return count_; }
  U64 total() const { return total_; }
  double delay() const { return delay_; }
  const std::string& label() const { return label_; }
  Mode mode() const { return mode_; }
  Number address() const { return address_; }
  U32 twice() const { return 2 * count_; }
  Ptr<Node> node(U32 key) const { return member<&Root::node_>(Number(key)); }
  size_t nodes() const { return node_.size(); }

  void enabledIs(bool v) { set<&Root::enabled_>(v); }
  void countIs(U32 v) { set<&Root::count_>(v); }
  U32 countInc(U32 by) { return inc<&Root::count_>(by); }
  void totalIs(U64 v) { set<&Root::total_>(v); }
  void delayIs(double v) { set<&Root::delay_>(v); }
  void labelIs(std::string v) { set<&Root::label_>(std::move(v)); }
  void modeIs(Mode v) { set<&Root::mode_>(v); }
  void addressIs(Number v) { set<&Root::address_>(v); }
  void originIs(Origin v) { set<&Root::origin_>(v); }
  Ptr<Node> nodeIs(U32 key) { return memberIs<&Root::node_>(Number(key)); }
  Ptr<Node> nodeDel(U32 key) { return memberDel<&Root::node_>(Number(key)); }
  void nodeNotify() { notifyCollection<&Root::node_>(); }

 private:
  friend class Entity<Root>;
  Name name_;
  bool enabled_ = false;
  U32 count_ = 0;
  NodeMap node_;
  U64 total_ = 0;
  double delay_ = 0.0;
  std::string label_;
  Mode mode_ = slow;
  Number address_;
  Origin origin_;

 public:
  static constexpr AttrTable attributes{
      Key{"name", &Root::name_},
      Attr{"enabled", &Root::enabled_, &Root::enabledIs, &NotifieeConst::onEnabled},  // 258
      Counter{"count", &Root::count_, &Root::countIs, &Root::countInc,
              &NotifieeConst::onCount},  // 259
      Collection{"node", &Root::node_, &NotifieeConst::onNode, &NotifieeConst::onNodeImmediate,
                 &NotifieeConst::onNode},                                             // 260
      Attr{"total", &Root::total_, &Root::totalIs, &NotifieeConst::onTotal},          // 261
      Derived{"twice", &Root::twice},                                                 // 262
      Attr{"delay", &Root::delay_, &Root::delayIs, &NotifieeConst::onDelay},          // 263
      Attr{"label", &Root::label_, &Root::labelIs, &NotifieeConst::onLabel},          // 264
      Attr{"mode", &Root::mode_, &Root::modeIs, &NotifieeConst::onMode},              // 265
      Attr{"address", &Root::address_, &Root::addressIs, &NotifieeConst::onAddress},  // 266
      Attr{"origin", &Root::origin_, &Root::originIs, &NotifieeConst::onOrigin},      // 267
  };
};

}  // namespace Mox::NboAttrLog
