// What a peer is sent that was too slow for a while, and when.
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
  // The frames that make a book without pages, as they leave outside and inside a transaction.
  static Frames bookFrames(const std::string& key) {
    return {"06 00000001 01" + key + "0104" + textHex("Test::Book") + key,
            "05 00000001 01" + key + "0103 01", "08 00000001 01" + key + "0103 01",
            "04 00000001 01" + key + "0104 00000000"};
  }
  static Frames joined(const std::vector<Frames>& parts) {
    Frames all;
    for (const Frames& part : parts) all.insert(all.end(), part.begin(), part.end());
    return framesOf(all);
  }
  void stalledShelf() {
    serveShelf();
    stall();
  }
  // What is sent of that which was remembered.
  Frames remembered() {
    unstall();
    return take();
  }
};

const std::string beginBooks = "05 00000001 00 0104 00";
const std::string endBooks = "08 00000001 00 0104 00";

TEST_F(TreeOutTest, changeIsSentAtOnceWhileThereIsRoom) {
  serveShelf();
  const int before = host_.outputs_;
  shelf_->visitsInc(1);
  EXPECT_EQ(host_.outputs_, before + 1);
  EXPECT_EQ(takeWithoutDraining(), framesOf({"04 00000001 00 0103 00000001"}));
}

TEST_F(TreeOutTest, threeChangesWhileFullAreOneRecordWithTheThirdValue) {
  stalledShelf();
  shelf_->visitsIs(1);
  shelf_->visitsIs(2);
  shelf_->visitsIs(3);
  EXPECT_EQ(remembered(), framesOf({"04 00000001 00 0103 00000003"}));
}

TEST_F(TreeOutTest, valueIsThatOfTheMomentInWhichItIsSent) {
  stalledShelf();
  shelf_->visitsIs(1);
  unstall();
  shelf_->visitsIs(9);  // there is room, but the older change comes first
  EXPECT_THAT(takeWithoutDraining(), IsEmpty());
  EXPECT_EQ(take(), framesOf({"04 00000001 00 0103 00000009"}));
}

TEST_F(TreeOutTest, attributesThatChangedLeaveInTheOrderOfIdentifiers) {
  stalledShelf();
  shelf_->ownerIs(Number(1));
  shelf_->bookIs(7);
  shelf_->heightIs(1.5);
  shelf_->visitsIs(2);
  EXPECT_EQ(remembered(),
            joined({{"04 00000001 00 0103 00000002", beginBooks},
                    bookFrames("00000007"),
                    {endBooks, "04 00000001 00 0107 3ff8000000000000 010a 00000001"}}));
}

TEST_F(TreeOutTest, onceEverythingIsSentChangesAreSentAtOnceAgain) {
  stalledShelf();
  shelf_->visitsIs(1);
  EXPECT_FALSE(session_->allSent());
  remembered();
  EXPECT_TRUE(session_->allSent());
  shelf_->visitsIs(2);
  EXPECT_EQ(takeWithoutDraining(), framesOf({"04 00000001 00 0103 00000002"}));
}

TEST_F(TreeOutTest, hostIsToldOnceThatSomethingIsLeftOver) {
  stalledShelf();
  const int before = host_.outputs_;
  shelf_->visitsIs(1);
  shelf_->visitsIs(2);
  shelf_->totalIs(2);
  EXPECT_EQ(host_.outputs_, before + 1);
}

TEST_F(TreeOutTest, memberThatCameAndWentWhileFullIsOnlyRemoved) {
  stalledShelf();
  shelf_->bookIs(7);
  shelf_->bookDel(7);
  EXPECT_EQ(remembered(), framesOf({beginBooks, "07 00000001 00 0104 00000007", endBooks}));
}

TEST_F(TreeOutTest, memberThatWentAndCameWhileFullIsSentWhole) {
  shelf_->bookIs(7)->loansIs(5);
  stalledShelf();
  shelf_->bookDel(7);
  shelf_->bookIs(7);
  EXPECT_EQ(remembered(), joined({{beginBooks}, bookFrames("00000007"), {endBooks}}));
}

TEST_F(TreeOutTest, memberRemovedWhileItsRecordWasRememberedIsRemovedByKey) {
  shelf_->bookIs(7);
  stalledShelf();
  shelf_->book(7)->loansInc(1);
  shelf_->book(7)->pageIs(1);
  shelf_->bookDel(7);
  EXPECT_EQ(remembered(), framesOf({beginBooks, "07 00000001 00 0104 00000007", endBooks}));
}

TEST_F(TreeOutTest, changeInsideAMemberIsSentWithoutTheMember) {
  shelf_->bookIs(7);
  stalledShelf();
  shelf_->book(7)->loansInc(1);
  shelf_->book(7)->loansInc(1);
  EXPECT_EQ(remembered(), framesOf({"04 00000001 01 00000007 0104 00000002"}));
}

TEST_F(TreeOutTest, changeInsideAMemberStillToBeSentIsPartOfItsRecord) {
  stalledShelf();
  shelf_->bookIs(7);
  shelf_->book(7)->pageIs(1);
  shelf_->book(7)->pageDel(1);
  EXPECT_EQ(remembered(), joined({{beginBooks}, bookFrames("00000007"), {endBooks}}));
}

TEST_F(TreeOutTest, keysLeaveInAscendingOrder) {
  stalledShelf();
  for (const U32 key : {9u, 3u, 6u}) shelf_->bookIs(key);
  EXPECT_EQ(remembered(), joined({{beginBooks},
                                  bookFrames("00000003"),
                                  bookFrames("00000006"),
                                  bookFrames("00000009"),
                                  {endBooks}}));
}

TEST_F(TreeOutTest, changedKeyIsNotifiedLikeOneThatCame) {
  shelf_->bookIs(7);
  serveShelf();
  stall();
  shelf_->bookNotify();
  EXPECT_EQ(
      remembered(),
      joined({{"05 00000001 00 0104 01"}, bookFrames("00000007"), {"08 00000001 00 0104 01"}}));
}

// A shelf whose many books do not fit into the stream at once.
class InterruptedWalkTest : public TreeOutTest {
 protected:
  static constexpr U32 books = 60;  // of about 90 bytes each, into a buffer of 2304
};

TEST_F(InterruptedWalkTest, goesOnAtTheNextKeyAndNamesEachOnce) {
  serveSmall();
  stall();
  for (U32 key = 1; key <= books; ++key) shelf_->bookIs(key);
  unstall();
  const Frames first = drained();
  const Frames second = drained();
  ASSERT_FALSE(session_->allSent());
  EXPECT_EQ(first.front(), hexOf(bytesOf("05 00000001 00 0104 00")));
  EXPECT_EQ(first.back(), hexOf(bytesOf("08 00000001 00 0104 02")));  // more
  // What the last book still lacks, then the walk goes on.
  EXPECT_EQ(second.at(0), hexOf(bytesOf("04 00000001 01 0000000f 0104 00000000")));
  EXPECT_EQ(announced(first).back(), 0x0fu);
  EXPECT_EQ(second.at(1), hexOf(bytesOf("05 00000001 00 0104 02")));  // resumed
  EXPECT_EQ(announced(second).front(), announced(first).back() + 1);
  std::vector<U32> keys = announced(first);
  for (const Frames& frames : {second, take()}) {
    for (const U32 key : announced(frames)) keys.push_back(key);
  }
  ASSERT_EQ(keys.size(), size_t{books});
  for (U32 key = 1; key <= books; ++key) EXPECT_EQ(keys[key - 1], key);
}

TEST_F(InterruptedWalkTest, keyThatComesBehindTheBookmarkIsSentInTheSameTransaction) {
  serveSmall();
  stall();
  for (U32 key = 101; key <= 100 + books; ++key) shelf_->bookIs(key);
  unstall();
  drained();
  shelf_->bookIs(1);
  const Frames rest = take();
  const std::vector<U32> keys = announced(rest);
  ASSERT_FALSE(keys.empty());
  EXPECT_EQ(keys.back(), 1u);  // after those that were waiting
  EXPECT_THAT(rest, Not(Contains(beginBooks)));
}

TEST_F(InterruptedWalkTest, walkThroughEverythingSkipsWhatWentBeforeItsTurn) {
  for (U32 key = 1; key <= books; ++key) shelf_->bookIs(key);
  directory_.entryIs("shelf/a", shelf_, Access::readOnly);
  serve(Rights::read, OutStream::leastCapacity);
  ASSERT_TRUE(send(helloFrame));
  const Frames first = drained();
  shelf_->bookDel(books);
  shelf_->bookDel(1);
  const Frames rest = take();
  EXPECT_EQ(announced(first).front(), 1u);
  EXPECT_EQ(announced(rest).back(), books - 1);
  EXPECT_THAT(rest, Contains(hexOf(bytesOf("07 00000001 00 0104 00000001"))));
  EXPECT_THAT(rest, Contains(hexOf(bytesOf("08 00000001 00 0104 01"))));
}

TEST_F(InterruptedWalkTest, changeInFrontOfTheBookmarkIsPartOfTheRecordToCome) {
  for (U32 key = 1; key <= books; ++key) shelf_->bookIs(key);
  directory_.entryIs("shelf/a", shelf_, Access::readOnly);
  serve(Rights::read, OutStream::leastCapacity);
  ASSERT_TRUE(send(helloFrame));
  drained();
  shelf_->book(1)->loansIs(11);      // sent already
  shelf_->book(books)->loansIs(22);  // still to come
  const Frames rest = take();
  EXPECT_EQ(std::ranges::count(rest, hexOf(bytesOf("04 00000001 01 00000001 0104 0000000b"))), 1);
  EXPECT_EQ(std::ranges::count(rest, hexOf(bytesOf("04 00000001 01 0000003c 0104 00000016"))), 1);
  EXPECT_THAT(rest, Not(Contains(hexOf(bytesOf("04 00000001 01 0000003c 0104 00000000")))));
}

TEST_F(InterruptedWalkTest, recordOfAMemberMayBeInterruptedWithinItsPages) {
  serveSmall();
  stall();
  for (U32 page = 1; page <= books; ++page) shelf_->bookIs(7)->pageIs(page);
  unstall();
  const Frames first = drained();
  EXPECT_EQ(first.at(first.size() - 2), hexOf(bytesOf("08 00000001 01 00000007 0103 03")));
  EXPECT_EQ(first.back(), hexOf(bytesOf("08 00000001 00 0104 02")));
  size_t pages = 0;
  for (const Frames& frames : {first, take()}) {
    for (const std::string& frame : frames) pages += frame.starts_with("060000000102") ? 1 : 0;
    EXPECT_LE(announced(frames).size(), 1u);
  }
  EXPECT_EQ(pages, size_t{books});
}

TEST_F(InterruptedWalkTest, membersThatComeAndGoForEverAreNotRememberedForEver) {
  serveShelf();
  stall();
  for (U32 key = 1; key <= TreeOut::keysAlwaysKept + 1; ++key) {
    shelf_->bookIs(key);
    shelf_->bookDel(key);
  }
  shelf_->bookIs(7);
  // Instead of a thousand removals: all that is there.
  EXPECT_EQ(
      remembered(),
      joined({{"05 00000001 00 0104 01"}, bookFrames("00000007"), {"08 00000001 00 0104 01"}}));
}

TEST_F(InterruptedWalkTest, attributeBehindTheFirstWalkWaitsForItsEnd) {
  for (U32 key = 1; key <= books; ++key) shelf_->bookIs(key);
  directory_.entryIs("shelf/a", shelf_, Access::readOnly);
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
  stalledShelf();
  TestHost otherHost;
  Session other(otherHost, {.name = "agent", .peerName = "uid 8"}, &directory_);
  FrameTaker otherTaker;
  ASSERT_TRUE(other.input(framed(helloFrame)));
  other.drain();
  otherTaker.take(other.stream());
  shelf_->visitsIs(5);
  EXPECT_EQ(otherTaker.take(other.stream()), framesOf({"04 00000001 00 0103 00000005"}));
  shelf_->visitsIs(6);
  EXPECT_EQ(remembered(), framesOf({"04 00000001 00 0103 00000006"}));
}

TEST_F(TreeOutTest, treeThatIsNeverDoneDoesNotHoldUpTheOthers) {
  for (U32 key = 1; key <= 60; ++key) shelf_->bookIs(key);
  directory_.entryIs("shelf/a", shelf_, Access::readOnly);
  directory_.entryIs("shelf/b", makePtr<Shelf>("b"), Access::readOnly);
  serve(Rights::read, OutStream::leastCapacity);
  ASSERT_TRUE(send(helloFrame));
  Frames all;
  for (int turn = 0; turn < 4; ++turn) {
    shelf_->bookNotify();
    session_->drain();
    for (const auto& frame : takeWithoutDraining()) all.push_back(frame);
  }
  EXPECT_FALSE(session_->allSent());
  EXPECT_THAT(all, Contains(StartsWith("0200000002")));
}

TEST_F(TreeOutTest, writingFromWithinADeliveryIsRefused) {
  serveShelf();
  host_.then_ = [&] {
    try {
      shelf_->visitsIs(1);
      ADD_FAILURE() << "a frame was written within another";
    } catch (const InternalError& error) {
      EXPECT_STREQ(error.what(), "entity reactor is already active");
    }
    host_.then_ = nullptr;
  };
  shelf_->litIs(true);
  EXPECT_EQ(host_.then_, nullptr);
}

TEST_F(TreeOutTest, drainingFromWithinADeliveryIsRefused) {
  serveShelf();
  std::string error;
  host_.then_ = [&] {
    try {
      session_->drain();
    } catch (const InternalError& refused) {
      error = refused.what();
    }
  };
  shelf_->bookNotify();
  EXPECT_EQ(error, "entity reactor is already active");
}

TEST_F(TreeOutTest, deliveryGoesOnAfterOneThatWasRefused) {
  serveShelf();
  host_.then_ = [&] { shelf_->visitsIs(1); };
  EXPECT_THROW(shelf_->litIs(true), InternalError);
  host_.then_ = nullptr;
  takeWithoutDraining();
  shelf_->totalIs(3);
  EXPECT_EQ(takeWithoutDraining(), framesOf({"04 00000001 00 0105 0000000000000003"}));
}

TEST_F(TreeOutTest, entityThatHasAParentIsNoDirectoryEntry) {
  const Ptr<Book> book = shelf_->bookIs(1);
  directory_.entryIs("book", book, Access::readOnly);
  EXPECT_DEATH(serve(), "a directory entry has no parent");
}

}  // namespace
}  // namespace Mox::NboAttrLog
