#include <MoxBase/Ptr.h>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace Mox {
namespace {

struct Node : RefCounted {
  explicit Node(int& alive) : alive_(alive) { ++alive_; }
  ~Node() override { --alive_; }
  int& alive_;
};
struct Leaf final : Node {
  using Node::Node;
};

TEST(Ptr, lastOneToGoDeletesTheObject) {
  int alive = 0;
  Ptr<Node> a = makePtr<Node>(alive);
  {
    Ptr<Node> b = a;
    EXPECT_EQ(a->refs(), 2u);
  }
  EXPECT_EQ(a->refs(), 1u);
  EXPECT_EQ(alive, 1);
  a = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(Ptr, convertsToTheBaseAndToConst) {
  int alive = 0;
  Ptr<const Node> a = makePtr<Leaf>(alive);
  EXPECT_EQ(alive, 1);
  Ptr<const Node> b = std::move(a);
  EXPECT_FALSE(a);  // NOLINT(bugprone-use-after-move): null is what a Ptr leaves behind
  EXPECT_TRUE(b);
}

TEST(Ptr, handedOutInAConstructorDoesNotDeleteTheObject) {
  struct Shy : RefCounted {
    Shy() { Ptr<Shy> temporary(this); }
    int value = 7;
  };
  Ptr<Shy> shy = makePtr<Shy>();
  EXPECT_EQ(shy->value, 7);
  EXPECT_EQ(shy->refs(), 1u);
}

TEST(Ptr, selfAssignmentKeepsTheObject) {
  int alive = 0;
  Ptr<Node> a = makePtr<Node>(alive);
  Ptr<Node>& same = a;
  a = same;
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(a->refs(), 1u);
}

TEST(PtrDeathTest, dereferencingNullIsFatal) {
  Ptr<Node> none;
  EXPECT_DEATH(none->refs(), "Ptr is not null");
}

TEST(Ptr, countsFromTwoThreadsWhenSwitchedOn) {
  threadSafePtrsIs(true);
  int alive = 0;
  {
    Ptr<Node> shared = makePtr<Node>(alive);
    auto spin = [&shared] {
      for (int i = 0; i < 20000; ++i) Ptr<Node> copy = shared;
    };
    std::thread one(spin);
    std::thread two(spin);
    one.join();
    two.join();
    EXPECT_EQ(shared->refs(), 1u);
  }
  EXPECT_EQ(alive, 0);
  threadSafePtrsIs(false);
}

}  // namespace
}  // namespace Mox
