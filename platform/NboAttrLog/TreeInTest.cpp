// What frames do to a copy, and what they may not do.
#include <NboAttrLog/TreeIn.h>

#include <string>

#include <Mox/Errors.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

using testing::IsEmpty;

// Writes down what it is told, then does what it was asked to do.
class ShelfWatcher final : public Shelf::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  using NotifieeConst::onBook;
  void onLit() override { tell("lit"); }
  void onVisits() override { tell("visits"); }
  void onBook(Number key) override { tell("book(" + std::to_string(key.value()) + ")"); }

  std::string told_;
  std::function<void()> then_;

 private:
  void tell(const std::string& what) {
    told_ += what + " ";
    if (then_) then_();
  }
};

// A session that keeps copies, greeted, whose peer is the test.
class TreeInTest : public testing::Test {
 protected:
  TreeInTest() { connect(); }

  void connect() {
    session_ =
        std::make_unique<Session>(host_, Session::Setup{.name = "copy", .peerName = "agent"});
    taker_ = {};
    taker_.take(session_->stream());
    EXPECT_TRUE(send(helloFrame));
  }
  bool send(std::string_view hex) { return session_->input(framed(hex)); }
  Frames take() {
    session_->drain();
    return taker_.take(session_->stream());
  }
  // A copy of shelf/a with books of these keys, as an earlier connection left it.
  void copyWith(std::initializer_list<U32> keys) {
    EXPECT_TRUE(send(shelfRoot));
    for (const U32 key : keys) {
      const std::string hex = hexOf(std::array{U8{0}, U8{0}, U8{0}, static_cast<U8>(key)});
      std::string frame = "06 00000001 01";
      frame.append(hex).append("0104").append(textHex("Test::Book")).append(hex);
      EXPECT_TRUE(send(frame));
    }
    connect();
    EXPECT_TRUE(send(shelfRoot));
  }
  Ptr<Shelf> shelf() { return host_.copy("shelf/a"); }

  TestHost host_;
  std::unique_ptr<Session> session_;
  FrameTaker taker_;
};

const std::string wholeBegin = "05 00000001 00 0104 01";
const std::string wholeEnd = "08 00000001 00 0104 01";
const std::string book7 = "06 00000001 01 00000007 0104" + textHex("Test::Book") + "00000007";
const std::string page1 =
    "06 00000001 02 00000007 00000001 0103" + textHex("Test::Page") + "00000001";

TEST_F(TreeInTest, directoryEntryAsksTheHostForACopy) {
  EXPECT_TRUE(send(shelfRoot));
  EXPECT_EQ(host_.told(), "root(shelf/a) ");
  EXPECT_EQ(shelf()->name(), Name("a"));
}

TEST_F(TreeInTest, valuesGoThroughTheSettersSoThatNotifieesHear) {
  ASSERT_TRUE(send(shelfRoot));
  const ShelfWatcher watcher(shelf());
  ASSERT_TRUE(send("04 00000001 00 0102 01 0103 00000003"));
  EXPECT_TRUE(shelf()->lit());
  EXPECT_EQ(shelf()->visits(), 3u);
  EXPECT_EQ(watcher.told_, "lit visits ");
  ASSERT_TRUE(send("04 00000001 00 0102 01 0103 00000003"));
  EXPECT_EQ(watcher.told_, "lit visits ");
}

TEST_F(TreeInTest, eachKindOfValueIsRead) {
  ASSERT_TRUE(send(shelfRoot));
  ASSERT_TRUE(
      send("04 00000001 00 0105 0102030405060708 0107 7ff0000000000000 0108 0002 7570"
           "0109 00000004 010a c0a80001"));
  EXPECT_EQ(shelf()->total(), 0x0102030405060708u);
  EXPECT_EQ(shelf()->height(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(shelf()->label(), "up");
  EXPECT_EQ(shelf()->wood(), oak);
  EXPECT_EQ(shelf()->owner(), Number(0xc0a80001u));
}

TEST_F(TreeInTest, derivedAttributeIsComputedHere) {
  ASSERT_TRUE(send(shelfRoot));
  ASSERT_TRUE(send("04 00000001 00 0103 00000003"));
  EXPECT_EQ(shelf()->twice(), 6u);
}

TEST_F(TreeInTest, membersComeAndGo) {
  ASSERT_TRUE(send(shelfRoot));
  const ShelfWatcher watcher(shelf());
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send("04 00000001 01 00000007 0104 00000009"));
  EXPECT_EQ(shelf()->book(7)->loans(), 9u);
  ASSERT_TRUE(send(page1));
  ASSERT_TRUE(send("04 00000001 02 00000007 00000001 0103 01"));
  EXPECT_TRUE(shelf()->book(7)->page(Number(1))->torn());
  ASSERT_TRUE(send("07 00000001 00 0104 00000007"));
  EXPECT_EQ(shelf()->books(), 0u);
  EXPECT_EQ(watcher.told_, "book(7) book(7) ");
}

TEST_F(TreeInTest, additionOfAMemberThatIsThereFindsIt) {
  copyWith({7});
  const Ptr<Book> before = shelf()->book(7);
  ASSERT_TRUE(send(book7));
  EXPECT_EQ(shelf()->book(7), before);
}

TEST_F(TreeInTest, removalOfAMemberThatIsNotThereIsSilent) {
  ASSERT_TRUE(send(shelfRoot));
  const ShelfWatcher watcher(shelf());
  EXPECT_TRUE(send("07 00000001 00 0104 00000007"));
  EXPECT_EQ(watcher.told_, "");
}

TEST_F(TreeInTest, walkThatNamesEveryMemberRemovesTheOthersAtItsEnd) {
  copyWith({3, 7, 9});
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(book7));
  EXPECT_EQ(shelf()->books(), 3u);
  ASSERT_TRUE(send(wholeEnd));
  EXPECT_EQ(shelf()->books(), 1u);
  EXPECT_TRUE(shelf()->book(7));
}

TEST_F(TreeInTest, interruptedWalkRemovesNothingBeforeItsLastEnd) {
  copyWith({3, 7, 9});
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send("08 00000001 00 0104 03"));
  EXPECT_EQ(shelf()->books(), 3u);
  ASSERT_TRUE(send("05 00000001 00 0104 03"));
  ASSERT_TRUE(send("06 00000001 01 00000009 0104" + textHex("Test::Book") + "00000009"));
  ASSERT_TRUE(send(wholeEnd));
  EXPECT_EQ(shelf()->books(), 2u);
  EXPECT_FALSE(shelf()->book(3));
}

TEST_F(TreeInTest, walkThatBeginsAnewForgetsWhatTheOldOneNamed) {
  copyWith({3, 7});
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(wholeEnd));
  EXPECT_EQ(shelf()->books(), 0u);
}

TEST_F(TreeInTest, walkThroughChangesRemovesNothingThatItDoesNotName) {
  copyWith({3, 7});
  ASSERT_TRUE(send("05 00000001 00 0104 00"));
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send("08 00000001 00 0104 00"));
  EXPECT_EQ(shelf()->books(), 2u);
}

TEST_F(TreeInTest, walkInsideAMemberRemovesWhatTheMemberNoLongerHas) {
  ASSERT_TRUE(send(shelfRoot));
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send(page1));
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send("05 00000001 01 00000007 0103 01"));
  ASSERT_TRUE(send("08 00000001 01 00000007 0103 01"));
  ASSERT_TRUE(send(wholeEnd));
  EXPECT_EQ(shelf()->book(7)->pages(), 0u);
}

TEST_F(TreeInTest, walkInsideAMemberEndsWithTheMember) {
  ASSERT_TRUE(send(shelfRoot));
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send(page1));
  ASSERT_TRUE(send("05 00000001 01 00000007 0103 01"));
  ASSERT_TRUE(send("07 00000001 00 0104 00000007"));
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send(page1));
  ASSERT_TRUE(send("08 00000001 01 00000007 0103 01"));
  EXPECT_EQ(shelf()->book(7)->pages(), 1u);  // the walk that ends began in another member
}

TEST_F(TreeInTest, whatCameInIsNotSentBack) {
  ASSERT_TRUE(send(writableShelfRoot));
  ASSERT_TRUE(send("04 00000001 00 0103 00000003"));
  ASSERT_TRUE(send(book7));
  ASSERT_TRUE(send("04 00000001 01 00000007 0104 00000009"));
  ASSERT_TRUE(send("07 00000001 00 0104 00000007"));
  EXPECT_EQ(shelf()->visits(), 3u);
  EXPECT_TRUE(session_->allSent());
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(TreeInTest, whatIsWrittenBecauseOfWhatCameInIsSent) {
  ASSERT_TRUE(send(writableShelfRoot));
  ShelfWatcher watcher(shelf());
  watcher.then_ = [&] { shelf()->litIs(true); };
  ASSERT_TRUE(send("04 00000001 00 0103 00000003"));
  EXPECT_EQ(take(), framesOf({"04 00000001 00 0102 01"}));
}

TEST_F(TreeInTest, writableCopySendsWhatIsWrittenInIt) {
  ASSERT_TRUE(send(writableShelfRoot));
  EXPECT_THAT(take(), IsEmpty());
  shelf()->visitsIs(8);
  shelf()->bookIs(7)->loansIs(1);
  EXPECT_EQ(take(),
            framesOf({"04 00000001 00 0103 00000008", book7, "05 00000001 01 00000007 0103 01",
                      "08 00000001 01 00000007 0103 01", "04 00000001 01 00000007 0104 00000000",
                      "04 00000001 01 00000007 0104 00000001"}));
}

std::string readOnlyErrorOf(const std::function<void()>& write) {
  try {
    write();
  } catch (const ReadOnlyError& error) {
    return error.what();
  }
  return "no error";
}

TEST_F(TreeInTest, writingAReadOnlyCopyIsAnErrorThatNamesTheAttribute) {
  ASSERT_TRUE(send(shelfRoot));
  EXPECT_EQ(readOnlyErrorOf([&] { shelf()->visitsInc(1); }), "attribute visits is read-only");
  EXPECT_EQ(readOnlyErrorOf([&] { shelf()->bookIs(7); }), "attribute book is read-only");
  EXPECT_EQ(readOnlyErrorOf([&] { shelf()->bookNotify(); }), "attribute book is read-only");
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(TreeInTest, writingAMemberOfAReadOnlyCopyIsAnError) {
  ASSERT_TRUE(send(shelfRoot));
  ASSERT_TRUE(send(book7));
  EXPECT_EQ(readOnlyErrorOf([&] { shelf()->book(7)->loansIs(1); }), "attribute loans is read-only");
}

TEST_F(TreeInTest, memberThatOutlivedAConnectionIsReadOnlyInTheNext) {
  copyWith({7});
  session_.reset();
  shelf()->book(7)->loansIs(1);  // nobody's copy now
  connect();
  ASSERT_TRUE(send(shelfRoot));
  ASSERT_TRUE(send(book7));
  EXPECT_EQ(readOnlyErrorOf([&] { shelf()->book(7)->loansIs(2); }), "attribute loans is read-only");
}

TEST_F(TreeInTest, copyMayBeWrittenOnceTheConnectionIsGone) {
  ASSERT_TRUE(send(shelfRoot));
  session_.reset();
  shelf()->visitsIs(4);
  EXPECT_EQ(shelf()->visits(), 4u);
}

TEST_F(TreeInTest, writingAReadOnlyCopyFromWithinWhatCameInIsAnError) {
  ASSERT_TRUE(send(shelfRoot));
  ShelfWatcher watcher(shelf());
  watcher.then_ = [&] {
    watcher.then_ = nullptr;
    EXPECT_EQ(readOnlyErrorOf([&] { shelf()->litIs(true); }), "attribute lit is read-only");
  };
  ASSERT_TRUE(send("04 00000001 00 0103 00000003"));
  EXPECT_EQ(watcher.told_, "visits lit ");
}

TEST(ReadOnlyTreeInTest, updateOfAReadOnlyEntityIsAnInternalErrorThatNamesEntityAndPeer) {
  struct QuietHost final : TreeOut::Host {
    OutStream& out() override { return out_; }
    bool deferred() const override { return false; }
    void deferredIs() override {}
    void transmit() override {}
    OutStream out_;
  };
  QuietHost host;
  const Ptr<Shelf> shelf = makePtr<Shelf>("a");
  TreeOut out(host, 1, "shelf/a", shelf, TreeOut::Copy::original, false);
  TreeIn in(shelf, false, out);
  const auto removal = bytesOf("0104 00000007");
  Reader reader(removal);
  try {
    in.handleRemoval({.root = 1}, reader, "uid 7");
    FAIL() << "no error";
  } catch (const InternalError& error) {
    EXPECT_STREQ(error.what(), "write-update from readonly proxy: a peerName: uid 7");
  }
}

TEST_F(TreeInTest, entryThatIsOfNoInterestIsSkippedWithAllThatBelongsToIt) {
  host_.ignores_ = true;
  EXPECT_TRUE(send(shelfRoot));
  EXPECT_TRUE(send("04 00000001 00 0103 00000003"));
  EXPECT_TRUE(send(book7));
  EXPECT_TRUE(send("03 00000001"));
  EXPECT_EQ(host_.told(), "root(shelf/a) rootDel(shelf/a) ");
}

TEST_F(TreeInTest, endOfAnEntryIsToldWithItsPath) {
  ASSERT_TRUE(send(shelfRoot));
  host_.told();
  ASSERT_TRUE(send("03 00000001"));
  EXPECT_EQ(host_.told(), "rootDel(shelf/a) ");
  EXPECT_FALSE(send("04 00000001 00 0103 00000003"));
}

}  // namespace
}  // namespace Mox::NboAttrLog
