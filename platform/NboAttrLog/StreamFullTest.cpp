// A stream that becomes full at any byte: what is built fits, and the copy is right in the end.
#include <array>
#include <set>
#include <string>

#include <Mox/Entity.h>
#include <Mox/HashMap.h>
#include <Mox/OrderedMap.h>
#include <gtest/gtest.h>

#include "TestTree.h"

namespace Mox::NboAttrLog {
namespace {

// A type name of the longest length makes the longest additions, too.
template <char c>
constexpr auto longestName = [] {
  std::array<char, longestText + 1> name{};
  for (size_t at = 0; at < longestText; ++at) name[at] = c;
  return name;
}();

// Four texts that make a frame of the longest length, at whatever depth the entity is.
template <class Self, size_t depth>
class Texts : public Entity<Self> {
 public:
  class NotifieeOfTexts : public NotifieeOf<Self> {
   public:
    virtual void onText() {}
  };
  std::string name() const { return {}; }
  void aIs(std::string v) { this->template set<&Texts::a_>(std::move(v)); }
  void bIs(std::string v) { this->template set<&Texts::b_>(std::move(v)); }
  void cIs(std::string v) { this->template set<&Texts::c_>(std::move(v)); }
  void dIs(std::string v) { this->template set<&Texts::d_>(std::move(v)); }
  void fillIs(char c) {
    aIs(std::string(longestText, c));
    bIs(std::string(longestText, c));
    cIs(std::string(longestFrame - frameHead - (5 + 4 * depth) - 3 * (4 + longestText) - 4, c));
    dIs(std::string(longestText, c));
  }

 protected:
  std::string a_;
  std::string b_;
  std::string c_;
  std::string d_;
};

class TextLeaf final : public Texts<TextLeaf, 2> {
 public:
  static constexpr const char* entityTypeName = longestName<'l'>.data();
  using NotifieeConst = NotifieeOfTexts;
  explicit TextLeaf(Number number) : number_(number) {}

 private:
  friend class Entity<TextLeaf>;
  Number number_;

 public:
  static constexpr AttrTable attributes{
      Key{"number", &TextLeaf::number_},
      Attr{"a", &TextLeaf::a_, &TextLeaf::aIs, &NotifieeConst::onText},
      Attr{"b", &TextLeaf::b_, &TextLeaf::bIs, &NotifieeConst::onText},
      Attr{"c", &TextLeaf::c_, &TextLeaf::cIs, &NotifieeConst::onText},
      Attr{"d", &TextLeaf::d_, &TextLeaf::dIs, &NotifieeConst::onText},
  };
};

class TextNode final : public Texts<TextNode, 1> {
 public:
  static constexpr const char* entityTypeName = longestName<'n'>.data();
  class NotifieeConst : public NotifieeOfTexts {
   public:
    virtual void onLeaf(Number) {}
    virtual void onLeafImmediate() {}
    virtual void onLeaf() {}
  };
  explicit TextNode(Number number) : number_(number) {}
  Ptr<TextLeaf> leafIs(U32 key) { return memberIs<&TextNode::leaf_>(Number(key)); }
  Ptr<TextLeaf> leafDel(U32 key) { return memberDel<&TextNode::leaf_>(Number(key)); }

 private:
  friend class Entity<TextNode>;
  Number number_;
  HashMap<Number, Ptr<TextLeaf>> leaf_;

 public:
  static constexpr AttrTable attributes{
      Key{"number", &TextNode::number_},
      Collection{"leaf", &TextNode::leaf_, &NotifieeConst::onLeaf, &NotifieeConst::onLeafImmediate,
                 &NotifieeConst::onLeaf},
      Attr{"a", &TextNode::a_, &TextNode::aIs, &NotifieeConst::onText},
      Attr{"b", &TextNode::b_, &TextNode::bIs, &NotifieeConst::onText},
      Attr{"c", &TextNode::c_, &TextNode::cIs, &NotifieeConst::onText},
      Attr{"d", &TextNode::d_, &TextNode::dIs, &NotifieeConst::onText},
  };
};

class TextRoot final : public Texts<TextRoot, 0> {
 public:
  static constexpr const char* entityTypeName = "Test::TextRoot";
  class NotifieeConst : public NotifieeOfTexts {
   public:
    virtual void onNode(Number) {}
    virtual void onNodeImmediate() {}
    virtual void onNode() {}
  };
  Ptr<TextNode> nodeIs(U32 key) { return memberIs<&TextRoot::node_>(Number(key)); }
  Ptr<TextNode> nodeDel(U32 key) { return memberDel<&TextRoot::node_>(Number(key)); }

 private:
  friend class Entity<TextRoot>;
  OrderedMap<Number, Ptr<TextNode>> node_;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &TextRoot::name},
      Collection{"node", &TextRoot::node_, &NotifieeConst::onNode, &NotifieeConst::onNodeImmediate,
                 &NotifieeConst::onNode},
      Attr{"a", &TextRoot::a_, &TextRoot::aIs, &NotifieeConst::onText},
      Attr{"b", &TextRoot::b_, &TextRoot::bIs, &NotifieeConst::onText},
      Attr{"c", &TextRoot::c_, &TextRoot::cIs, &NotifieeConst::onText},
      Attr{"d", &TextRoot::d_, &TextRoot::dIs, &NotifieeConst::onText},
  };
};

Ptr<TextRoot> filledRoot() {
  const auto root = makePtr<TextRoot>();
  root->fillIs('r');
  for (U32 key = 1; key <= 2; ++key) {
    const auto node = root->nodeIs(key);
    node->fillIs('n');
    for (U32 leaf = 1; leaf <= 2; ++leaf) node->leafIs(leaf)->fillIs('l');
  }
  return root;
}

// Until all is sent. The peer leaves so many bytes in the stream every other time; always would be
// too often: the begin of a walk can take the room that its first member needs.
void drainAbove(TestTree& tree, size_t left) {
  for (size_t drains = 0; !tree.allSent(); ++drains) {
    ASSERT_LT(drains, 1000u);
    tree.drain();
    const size_t waiting = tree.stream().pending().size();
    tree.take(drains % 2 == 0 ? waiting - std::min(waiting, left) : waiting);
  }
}

// Numbers of waiting bytes with which there is room for one frame more.
constexpr size_t mostWaiting = OutStream::leastCapacity - OutStream::sufficient;

TEST(StreamFullTest, longestFramesOfThreeDepthsHaveTheLongestLength) {
  TestTree tree(filledRoot(), makePtr<TextRoot>());
  std::set<size_t> lengths;
  InStream in;
  while (!tree.allSent()) {
    tree.drain();
    in.take(tree.stream().pending(), [&](std::span<const U8> frame) {
      Reader reader(frame);
      reader.u8();
      if (frame.size() == longestPayload + 1) lengths.insert(reader.ref().depth);
      return true;
    });
    tree.take(tree.stream().capacity());
  }
  EXPECT_EQ(lengths, (std::set<size_t>{0, 1, 2}));
}

TEST(StreamFullTest, wholeStateIsSentWhereverTheStreamIsFull) {
  for (size_t waiting = frameHead; waiting <= mostWaiting; ++waiting) {
    SCOPED_TRACE(waiting);
    TestTree tree(filledRoot(), makePtr<TextRoot>());
    tree.fill(waiting);
    drainAbove(tree, waiting);
    tree.take(tree.stream().capacity());
    tree.expectCopyEqual();
    if (testing::Test::HasFailure()) return;
  }
}

TEST(StreamFullTest, changesAreSentOrRememberedWhereverTheStreamIsFull) {
  for (size_t waiting = frameHead; waiting <= mostWaiting + 1; ++waiting) {
    SCOPED_TRACE(waiting);
    const auto root = filledRoot();
    TestTree tree(root, makePtr<TextRoot>());
    drainAbove(tree, 0);
    tree.fill(waiting);
    root->fillIs('R');
    root->nodeIs(1)->leafIs(1)->fillIs('L');
    root->nodeIs(3)->leafIs(1)->fillIs('l');
    root->nodeDel(2);
    root->nodeIs(1)->leafDel(2);
    root->nodeIs(1)->fillIs('N');
    tree.take(waiting);
    drainAbove(tree, 0);
    tree.take(tree.stream().capacity());
    tree.expectCopyEqual();
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace Mox::NboAttrLog
