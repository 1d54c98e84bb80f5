// Holds the table of a walk's transitions against random runs: each must be made, and no other.
#include <NboAttrLog/WalkState.h>

#include <random>
#include <set>
#include <string>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestTree.h"

namespace Mox::NboAttrLog {
namespace {

using Made = std::tuple<WalkState, WalkStop, WalkState>;

std::string text(const WalkTransition& made) {
  return "state " + std::to_string(static_cast<int>(made.from)) + ", stop " +
         std::to_string(static_cast<int>(made.stop)) + ", state " +
         std::to_string(static_cast<int>(made.to));
}

// Random changes, and the stops of the drains between them.
class WalkRun final : public TestTree {
 public:
  WalkRun(Ptr<EntityBase> original, Ptr<EntityBase> copy, U32 seed)
      : TestTree(std::move(original), std::move(copy)), random_(seed) {}

  U32 below(U32 bound) { return static_cast<U32>(random_() % bound); }
  const std::set<Made>& made() const { return made_; }
  bool membersChange_ = true;  // in this turn, and not only their attributes

  void drainAndNoteStop() {
    const WalkState before = walk();
    const size_t waiting = stream().pending().size();
    drain();
    const Markers markers = markersBehind(waiting);
    checkFlags(markers, before);
    if (flow().membersIfAny() == nullptr) return;  // nothing is left of the collection
    EXPECT_FALSE(allSent());
    const WalkState after = walk();
    if (after == before) {  // the stream was full before the walk
      EXPECT_TRUE(markers.empty());
      return;
    }
    made_.insert({before, stopOf(markers, before, after), after});
  }
  void settle() {
    for (size_t drains = 0; !allSent() || !stream().pending().empty(); ++drains) {
      ASSERT_LT(drains, 10000u);
      drainAndNoteStop();
      take(stream().capacity());
    }
  }

 private:
  struct Marker {
    FrameType type;
    U8 flags;
  };
  using Markers = std::vector<Marker>;

  WalkState walk() const {
    const FlowOut::Members* members = flow().membersIfAny();
    return members == nullptr ? WalkState::idle : members->walk();
  }

  // The markers of walks through the entity's own collection in the frames behind these bytes.
  Markers markersBehind(size_t bytes) {
    Markers markers;
    InStream{}.take(stream().pending().subspan(bytes), [&](std::span<const U8> frame) {
      Reader in(frame);
      const auto type = static_cast<FrameType>(in.u8());
      if (type != FrameType::begin && type != FrameType::end) return true;
      const bool own = in.ref().depth == 0;
      in.u16();
      if (own) markers.push_back({type, in.u8()});
      return true;
    });
    return markers;
  }
  static void checkFlags(const Markers& markers, WalkState before) {
    if (markers.empty()) return;
    ASSERT_EQ(markers.size(), 2u);
    EXPECT_EQ(markers[0].type, FrameType::begin);
    EXPECT_EQ(markers[1].type, FrameType::end);
    EXPECT_EQ(markers[0].flags, (isWhole(before) ? 1 : 0) | (isBegun(before) ? 2 : 0));
    EXPECT_EQ(markers[1].flags & transactionWhole, isWhole(before) ? 1 : 0);
  }
  // Where the drain stopped, as its frames show.
  WalkStop stopOf(const Markers& markers, WalkState before, WalkState after) const {
    if (!markers.empty() && (markers[1].flags & transactionMore) != 0) {
      return isInCollection(after) ? WalkStop::collection : WalkStop::keys;
    }
    const bool leaves = hasLeaves(original().type().collections.front());
    const bool insideFirst = isInsideFirst(before) && markers.empty() && !leaves;
    return insideFirst ? WalkStop::beforeKeys : WalkStop::inside;
  }

  std::mt19937 random_;
  std::set<Made> made_;
};

void changeNode(WalkRun& run, Node& node, U32 keys) {
  const U32 key = run.below(keys);
  const Ptr<Leaf> leaf = node.leaf(Number(key));
  switch (run.below(12)) {
    case 0:
      if (run.membersChange_) node.leafIs(key);
      break;
    case 1:
      if (run.membersChange_) node.leafDel(key);
      break;
    case 2: node.usesInc(1); break;
    case 3:
    case 4:
    case 5:
      if (leaf) leaf->expiredIs(!leaf->expired());
      break;
    default:
      if (leaf) leaf->levelIs(run.below(1000));
      break;
  }
}

void changeRoot(WalkRun& run, Root& root, U32 nodes, U32 leaves) {
  const U32 key = run.below(nodes);
  switch (run.below(12)) {
    case 0: root.nodeIs(key); break;
    case 1: root.nodeDel(key); break;
    case 2: root.countIs(run.below(1000)); break;
    case 3: root.totalIs(run.below(1000)); break;
    case 4:
      if (run.below(40) == 0) root.nodeNotify();
      break;
    default:
      if (const auto node = root.node(key)) changeNode(run, *node, leaves);
      break;
  }
}

// Changes in bursts, and a peer that is slow in some turns and not in others.
template <class E>
std::set<Made> madeBy(U32 seed, const Ptr<E>& original, const Ptr<E>& copy,
                      const std::function<void(WalkRun&)>& change) {
  WalkRun run(original, copy, seed);
  for (int turn = 0; turn < 150; ++turn) {
    const U32 bound = run.below(2) == 0 ? 20 : 300;
    run.membersChange_ = run.below(2) == 0;
    for (U32 left = run.below(bound); left > 0; --left) change(run);
    run.drainAndNoteStop();
    run.take(run.below(3) == 0 ? run.below(500) : OutStream::leastCapacity);
  }
  run.settle();
  SCOPED_TRACE("seed " + std::to_string(seed));
  run.expectCopyEqual();
  return run.made();
}

TEST(WalkStateTest, randomRunsMakeEachTransitionOfTheTableAndNoOther) {
  std::set<Made> seen;
  for (U32 seed = 1; seed <= 24; ++seed) {
    const U32 nodes = seed % 3 == 0 ? 3 : seed % 3 == 1 ? 40 : 200;
    const U32 leaves = seed % 2 == 0 ? 10 : 200;
    const auto root = makePtr<Root>("a");
    for (U32 key = 0; key < nodes; key += 2) root->nodeIs(key);
    seen.merge(madeBy<Root>(seed, root, makePtr<Root>("a"),
                            [&](WalkRun& run) { changeRoot(run, *root, nodes, leaves); }));
    const auto node = makePtr<Node>(Number(7));
    for (U32 key = 0; key < 300; key += 2) node->leafIs(key);
    seen.merge(madeBy<Node>(seed, node, makePtr<Node>(Number(7)),
                            [&](WalkRun& run) { changeNode(run, *node, 300); }));
  }
  std::set<Made> table;
  for (const auto& [from, stop, to] : walkTransitions) table.insert({from, stop, to});
  for (const auto& [from, stop, to] : walkTransitions) {
    EXPECT_TRUE(seen.contains({from, stop, to})) << "never made: " << text({from, stop, to});
  }
  for (const auto& [from, stop, to] : seen) {
    EXPECT_TRUE(table.contains({from, stop, to})) << "not in the table: " << text({from, stop, to});
  }
}

TEST(WalkStateTest, eachStopLeadsToOneOtherState) {
  std::set<std::pair<WalkState, WalkStop>> known;
  for (const WalkTransition& row : walkTransitions) {
    EXPECT_TRUE(known.insert({row.from, row.stop}).second) << text(row);
    EXPECT_NE(row.from, row.to) << text(row);
    EXPECT_TRUE(isInterrupted(row.to)) << text(row);
    EXPECT_EQ(nextState(row.from, row.stop), row.to);
  }
}

TEST(WalkStateTest, stopThatIsNotInTheTableIsABug) {
  EXPECT_DEATH(nextState(WalkState::idle, WalkStop::collection), "a walk stopped where it cannot");
}

}  // namespace
}  // namespace Mox::NboAttrLog
