// Frames to a peer while members come, go and change faster than it reads.
#include <functional>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

using testing::Contains;

// Changes that never end, to a peer that takes one buffer at a time.
class FastChangesTest : public ServingTest {
 protected:
  FastChangesTest() {
    for (U32 key = 1; key <= 2; ++key) {
      for (U32 leaf = 1; leaf <= 200; ++leaf) root_->nodeIs(key)->leafIs(leaf);
    }
  }
  // The frames that are sent while `change` goes on; `once` happens once in between.
  Frames sentDuring(
      const std::function<void()>& change, const std::function<void()>& once = [] {}) {
    Frames all;
    for (int turn = 0; turn < 12; ++turn) {
      change();
      if (turn == 3) once();
      for (const std::string& frame : drained()) all.push_back(frame);
      EXPECT_FALSE(session_->allSent());
    }
    return all;
  }
  void replaceNodes() {
    for (U32 key = 101; key <= 160; ++key) {
      root_->nodeDel(key);
      root_->nodeIs(key);
    }
  }
  void changeLeaves(U32 node) {
    for (U32 leaf = 1; leaf <= 200; ++leaf) {
      const Ptr<Leaf> changed = root_->node(node)->leaf(Number(leaf));
      changed->expiredIs(!changed->expired());
    }
  }
};

TEST_F(FastChangesTest, attributeBehindMembersThatComeAndGoForEverIsSent) {
  serveSmall();
  EXPECT_THAT(sentDuring([&] { replaceNodes(); }, [&] { root_->totalIs(5); }),
              Contains(hexOf(bytesOf("04 00000001 00 0105 0000000000000005"))));
}

TEST_F(FastChangesTest, changeInsideAMemberIsSentWhileOthersComeAndGoForEver) {
  serveSmall();
  EXPECT_THAT(sentDuring([&] { replaceNodes(); }, [&] { root_->node(1)->usesIs(5); }),
              Contains(hexOf(bytesOf("04 00000001 01 00000001 0104 00000005"))));
}

TEST_F(FastChangesTest, memberThatComesIsSentWhileOthersChangeForEver) {
  serveSmall();
  const Frames sent = sentDuring([&] { changeLeaves(1); }, [&] { root_->nodeIs(9); });
  EXPECT_THAT(announced(sent), Contains(9u));
}

TEST_F(FastChangesTest, memberThatChangesForEverDoesNotDelayTheOthers) {
  serveSmall();
  EXPECT_THAT(sentDuring([&] { changeLeaves(1); }, [&] { root_->node(2)->usesIs(5); }),
              Contains(hexOf(bytesOf("04 00000001 01 00000002 0104 00000005"))));
}

TEST_F(FastChangesTest, leavesThatChangeForEverAreAllSent) {
  serveSmall();
  std::set<std::string> leaves;
  for (const std::string& frame : sentDuring([&] { changeLeaves(1); })) {
    if (frame.starts_with("04000000010200000001")) leaves.insert(frame.substr(20, 8));
  }
  EXPECT_EQ(leaves.size(), 200u);
}

TEST_F(FastChangesTest, attributeOfAMemberIsSentWhileItsLeavesChangeForEver) {
  serveSmall();
  EXPECT_THAT(sentDuring([&] { changeLeaves(1); }, [&] { root_->node(1)->usesIs(5); }),
              Contains(hexOf(bytesOf("04 00000001 01 00000001 0104 00000005"))));
}

}  // namespace
}  // namespace Mox::NboAttrLog
