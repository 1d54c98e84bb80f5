// The frames to a peer that was too slow for a while, and their order.
#include <NboAttrLog/TreeOut.h>

#include <string>

#include <Mox/Errors.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class TreeOutTest : public ServingTest {
 protected:
  // The frames that make a node without leaves, as they leave outside and inside a transaction.
  static Frames nodeFrames(const std::string& key) {
    return {"06 00000001 01" + key + "0104" + textHex("Test::Node") + key,
            "05 00000001 01" + key + "0103 01", "08 00000001 01" + key + "0103 01",
            "04 00000001 01" + key + "0104 00000000"};
  }
  static Frames joined(const std::vector<Frames>& parts) {
    Frames all;
    for (const Frames& part : parts) all.insert(all.end(), part.begin(), part.end());
    return framesOf(all);
  }
  void stalledRoot() {
    serveRoot();
    stall();
  }
  // The frames of the changes that were remembered.
  Frames remembered() {
    unstall();
    return take();
  }
};

const std::string beginNodes = "05 00000001 00 0104 00";
const std::string endNodes = "08 00000001 00 0104 00";

TEST_F(TreeOutTest, changeIsSentAtOnceWhileThereIsRoom) {
  serveRoot();
  const int before = host_.outputs_;
  root_->countInc(1);
  EXPECT_EQ(host_.outputs_, before + 1);
  EXPECT_EQ(takeWithoutDraining(), framesOf({"04 00000001 00 0103 00000001"}));
}

TEST_F(TreeOutTest, threeChangesWhileFullAreOneRecordWithTheThirdValue) {
  stalledRoot();
  root_->countIs(1);
  root_->countIs(2);
  root_->countIs(3);
  EXPECT_EQ(remembered(), framesOf({"04 00000001 00 0103 00000003"}));
}

TEST_F(TreeOutTest, valueIsReadWhenItIsSent) {
  stalledRoot();
  root_->countIs(1);
  unstall();
  root_->countIs(9);  // there is room, but the older change comes first
  EXPECT_THAT(takeWithoutDraining(), IsEmpty());
  EXPECT_EQ(take(), framesOf({"04 00000001 00 0103 00000009"}));
}

TEST_F(TreeOutTest, attributesThatChangedLeaveInTheOrderOfIdentifiers) {
  stalledRoot();
  root_->addressIs(Number(1));
  root_->nodeIs(7);
  root_->delayIs(1.5);
  root_->countIs(2);
  EXPECT_EQ(remembered(),
            joined({{"04 00000001 00 0103 00000002", beginNodes},
                    nodeFrames("00000007"),
                    {endNodes, "04 00000001 00 0107 3ff8000000000000 010a 00000001"}}));
}

TEST_F(TreeOutTest, onceEverythingIsSentChangesAreSentAtOnceAgain) {
  stalledRoot();
  root_->countIs(1);
  EXPECT_FALSE(session_->allSent());
  remembered();
  EXPECT_TRUE(session_->allSent());
  root_->countIs(2);
  EXPECT_EQ(takeWithoutDraining(), framesOf({"04 00000001 00 0103 00000002"}));
}

TEST_F(TreeOutTest, hostIsNotifiedOnceOfRememberedChanges) {
  stalledRoot();
  const int before = host_.outputs_;
  root_->countIs(1);
  root_->countIs(2);
  root_->totalIs(2);
  EXPECT_EQ(host_.outputs_, before + 1);
}

TEST_F(TreeOutTest, memberThatCameAndWentWhileFullIsOnlyRemoved) {
  stalledRoot();
  root_->nodeIs(7);
  root_->nodeDel(7);
  EXPECT_EQ(remembered(), framesOf({beginNodes, "07 00000001 00 0104 00000007", endNodes}));
}

TEST_F(TreeOutTest, memberThatWentAndCameWhileFullIsSentWhole) {
  root_->nodeIs(7)->usesIs(5);
  stalledRoot();
  root_->nodeDel(7);
  root_->nodeIs(7);
  EXPECT_EQ(remembered(), joined({{beginNodes}, nodeFrames("00000007"), {endNodes}}));
}

TEST_F(TreeOutTest, memberRemovedWhileItsRecordWasRememberedIsRemovedByKey) {
  root_->nodeIs(7);
  stalledRoot();
  root_->node(7)->usesInc(1);
  root_->node(7)->leafIs(1);
  root_->nodeDel(7);
  EXPECT_EQ(remembered(), framesOf({beginNodes, "07 00000001 00 0104 00000007", endNodes}));
}

TEST_F(TreeOutTest, changeInsideAMemberIsSentWithoutTheMember) {
  root_->nodeIs(7);
  stalledRoot();
  root_->node(7)->usesInc(1);
  root_->node(7)->usesInc(1);
  EXPECT_EQ(remembered(), framesOf({"04 00000001 01 00000007 0104 00000002"}));
}

TEST_F(TreeOutTest, twoAttributesOfALeafThatChangedWhileFullAreBothSent) {
  const auto leaf = root_->nodeIs(7)->leafIs(1);
  stalledRoot();
  leaf->expiredIs(true);
  leaf->levelIs(3);
  EXPECT_EQ(remembered(), framesOf({"04 00000001 02 00000007 00000001 0103 01 0104 00000003"}));
}

TEST_F(TreeOutTest, changeInsideAMemberStillToBeSentIsPartOfItsRecord) {
  stalledRoot();
  root_->nodeIs(7);
  root_->node(7)->leafIs(1);
  root_->node(7)->leafDel(1);
  EXPECT_EQ(remembered(), joined({{beginNodes}, nodeFrames("00000007"), {endNodes}}));
}

TEST_F(TreeOutTest, keysLeaveInAscendingOrder) {
  stalledRoot();
  for (const U32 key : {9u, 3u, 6u}) root_->nodeIs(key);
  EXPECT_EQ(remembered(), joined({{beginNodes},
                                  nodeFrames("00000003"),
                                  nodeFrames("00000006"),
                                  nodeFrames("00000009"),
                                  {endNodes}}));
}

TEST_F(TreeOutTest, changedKeyIsNotifiedLikeOneThatCame) {
  root_->nodeIs(7);
  serveRoot();
  stall();
  root_->nodeNotify();
  EXPECT_EQ(
      remembered(),
      joined({{"05 00000001 00 0104 01"}, nodeFrames("00000007"), {"08 00000001 00 0104 01"}}));
}

// A root whose many nodes do not fit into the stream at once.
class InterruptedWalkTest : public TreeOutTest {
 protected:
  static constexpr U32 nodes = 60;  // of about 90 bytes each, into a buffer of 2304
};

TEST_F(InterruptedWalkTest, goesOnAtTheNextKeyAndNamesEachOnce) {
  serveSmall();
  stall();
  for (U32 key = 1; key <= nodes; ++key) root_->nodeIs(key);
  unstall();
  const Frames first = drained();
  const Frames second = drained();
  ASSERT_FALSE(session_->allSent());
  EXPECT_EQ(first.front(), hexOf(bytesOf("05 00000001 00 0104 00")));
  EXPECT_EQ(first.back(), hexOf(bytesOf("08 00000001 00 0104 02")));  // more
  // What the last node still lacks, then the walk goes on.
  EXPECT_EQ(second.at(0), hexOf(bytesOf("04 00000001 01 0000000f 0104 00000000")));
  EXPECT_EQ(announced(first).back(), 0x0fu);
  EXPECT_EQ(second.at(1), hexOf(bytesOf("05 00000001 00 0104 02")));  // resumed
  EXPECT_EQ(announced(second).front(), announced(first).back() + 1);
  std::vector<U32> keys = announced(first);
  for (const Frames& frames : {second, take()}) {
    for (const U32 key : announced(frames)) keys.push_back(key);
  }
  ASSERT_EQ(keys.size(), size_t{nodes});
  for (U32 key = 1; key <= nodes; ++key) EXPECT_EQ(keys[key - 1], key);
}

TEST_F(InterruptedWalkTest, keyThatComesBehindTheBookmarkIsSentInTheSameTransaction) {
  serveSmall();
  stall();
  for (U32 key = 101; key <= 100 + nodes; ++key) root_->nodeIs(key);
  unstall();
  drained();
  root_->nodeIs(1);
  const Frames rest = take();
  const std::vector<U32> keys = announced(rest);
  ASSERT_FALSE(keys.empty());
  EXPECT_EQ(keys.back(), 1u);  // after those that were waiting
  EXPECT_THAT(rest, Not(Contains(beginNodes)));
}

TEST_F(InterruptedWalkTest, walkThroughEverythingSkipsMembersThatWentBefore) {
  for (U32 key = 1; key <= nodes; ++key) root_->nodeIs(key);
  directory_.entryIs("root/a", root_, Access::readOnly);
  serve(Rights::read, OutStream::leastCapacity);
  ASSERT_TRUE(send(helloFrame));
  const Frames first = drained();
  root_->nodeDel(nodes);
  root_->nodeDel(1);
  const Frames rest = take();
  EXPECT_EQ(announced(first).front(), 1u);
  EXPECT_EQ(announced(rest).back(), nodes - 1);
  EXPECT_THAT(rest, Contains(hexOf(bytesOf("07 00000001 00 0104 00000001"))));
  EXPECT_THAT(rest, Contains(hexOf(bytesOf("08 00000001 00 0104 01"))));
}

TEST_F(InterruptedWalkTest, walkThroughEverythingEndsAfterTheHighestKey) {
  for (const U32 key : {1u, 2u, ~0u}) root_->nodeIs(key);
  directory_.entryIs("root/a", root_, Access::readOnly);
  serve(Rights::read, OutStream::leastCapacity);
  ASSERT_TRUE(send(helloFrame));
  const Frames frames = drained();
  EXPECT_EQ(announced(frames), (std::vector<U32>{1, 2, ~0u}));
  EXPECT_THAT(frames, Contains(hexOf(bytesOf("08 00000001 00 0104 01"))));
}

TEST_F(InterruptedWalkTest, changeInFrontOfTheBookmarkIsPartOfTheRecordToCome) {
  for (U32 key = 1; key <= nodes; ++key) root_->nodeIs(key);
  directory_.entryIs("root/a", root_, Access::readOnly);
  serve(Rights::read, OutStream::leastCapacity);
  ASSERT_TRUE(send(helloFrame));
  drained();
  root_->node(1)->usesIs(11);      // sent already
  root_->node(nodes)->usesIs(22);  // still to come
  const Frames rest = take();
  EXPECT_EQ(std::ranges::count(rest, hexOf(bytesOf("04 00000001 01 00000001 0104 0000000b"))), 1);
  EXPECT_EQ(std::ranges::count(rest, hexOf(bytesOf("04 00000001 01 0000003c 0104 00000016"))), 1);
  EXPECT_THAT(rest, Not(Contains(hexOf(bytesOf("04 00000001 01 0000003c 0104 00000000")))));
}

TEST_F(InterruptedWalkTest, recordOfAMemberMayBeInterruptedWithinItsLeaves) {
  serveSmall();
  stall();
  for (U32 leaf = 1; leaf <= nodes; ++leaf) root_->nodeIs(7)->leafIs(leaf);
  unstall();
  const Frames first = drained();
  EXPECT_EQ(first.at(first.size() - 2), hexOf(bytesOf("08 00000001 01 00000007 0103 03")));
  EXPECT_EQ(first.back(), hexOf(bytesOf("08 00000001 00 0104 02")));
  size_t leaves = 0;
  for (const Frames& frames : {first, take()}) {
    for (const std::string& frame : frames) leaves += frame.starts_with("060000000102") ? 1 : 0;
    EXPECT_LE(announced(frames).size(), 1u);
  }
  EXPECT_EQ(leaves, size_t{nodes});
}

TEST_F(InterruptedWalkTest, membersThatComeAndGoForEverAreNotRememberedForEver) {
  serveRoot();
  stall();
  for (U32 key = 1; key <= TreeOut::keysAlwaysKept + 1; ++key) {
    root_->nodeIs(key);
    root_->nodeDel(key);
  }
  root_->nodeIs(7);
  // Instead of a thousand removals: all that is there.
  EXPECT_EQ(
      remembered(),
      joined({{"05 00000001 00 0104 01"}, nodeFrames("00000007"), {"08 00000001 00 0104 01"}}));
}

TEST_F(InterruptedWalkTest, attributeBehindTheFirstWalkWaitsForItsEnd) {
  for (U32 key = 1; key <= nodes; ++key) root_->nodeIs(key);
  directory_.entryIs("root/a", root_, Access::readOnly);
  serve(Rights::read, OutStream::leastCapacity);
  ASSERT_TRUE(send(helloFrame));
  const Frames first = drained();
  const Frames rest = take();
  const std::string behind = "0400000001000105";
  EXPECT_EQ(std::ranges::count_if(first, [&](const auto& f) { return f.starts_with(behind); }), 0);
  const auto end = std::ranges::find(rest, hexOf(bytesOf("08 00000001 00 0104 01")));
  ASSERT_NE(end, rest.end());
  EXPECT_TRUE((end + 1)->starts_with(behind));
}

TEST_F(TreeOutTest, peerThatIsTakingDoesNotWaitForOneThatIsNot) {
  stalledRoot();
  TestHost otherHost;
  Session other(otherHost, {.name = "agent", .peerName = "uid 8"}, &directory_);
  FrameTaker otherTaker;
  ASSERT_TRUE(other.input(framed(helloFrame)));
  other.drain();
  otherTaker.take(other.stream());
  root_->countIs(5);
  EXPECT_EQ(otherTaker.take(other.stream()), framesOf({"04 00000001 00 0103 00000005"}));
  root_->countIs(6);
  EXPECT_EQ(remembered(), framesOf({"04 00000001 00 0103 00000006"}));
}

TEST_F(TreeOutTest, treeThatIsNeverDoneDoesNotDelayTheOthers) {
  for (U32 key = 1; key <= 60; ++key) root_->nodeIs(key);
  directory_.entryIs("root/a", root_, Access::readOnly);
  directory_.entryIs("root/b", makePtr<Root>("b"), Access::readOnly);
  serve(Rights::read, OutStream::leastCapacity);
  ASSERT_TRUE(send(helloFrame));
  Frames all;
  for (int turn = 0; turn < 4; ++turn) {
    root_->nodeNotify();
    session_->drain();
    for (const auto& frame : takeWithoutDraining()) all.push_back(frame);
  }
  EXPECT_FALSE(session_->allSent());
  EXPECT_THAT(all, Contains(StartsWith("0200000002")));
}

TEST_F(TreeOutTest, writingFromWithinADeliveryIsRefused) {
  serveRoot();
  host_.then_ = [&] {
    try {
      root_->countIs(1);
      ADD_FAILURE() << "a frame was written within another";
    } catch (const InternalError& error) {
      EXPECT_STREQ(error.what(), "entity reactor is already active");
    }
    host_.then_ = nullptr;
  };
  root_->enabledIs(true);
  EXPECT_EQ(host_.then_, nullptr);
}

TEST_F(TreeOutTest, drainingFromWithinADeliveryIsRefused) {
  serveRoot();
  std::string error;
  host_.then_ = [&] {
    try {
      session_->drain();
    } catch (const InternalError& refused) {
      error = refused.what();
    }
  };
  root_->nodeNotify();
  EXPECT_EQ(error, "entity reactor is already active");
}

TEST_F(TreeOutTest, deliveryGoesOnAfterOneThatWasRefused) {
  serveRoot();
  host_.then_ = [&] { root_->countIs(1); };
  EXPECT_THROW(root_->enabledIs(true), InternalError);
  host_.then_ = nullptr;
  takeWithoutDraining();
  root_->totalIs(3);
  EXPECT_EQ(takeWithoutDraining(), framesOf({"04 00000001 00 0105 0000000000000003"}));
}

TEST_F(TreeOutTest, entityThatHasAParentIsNoDirectoryEntry) {
  const Ptr<Node> node = root_->nodeIs(1);
  directory_.entryIs("node", node, Access::readOnly);
  EXPECT_DEATH(serve(), "a directory entry has no parent");
}

}  // namespace
}  // namespace Mox::NboAttrLog
