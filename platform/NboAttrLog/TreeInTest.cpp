// The effects of frames on a copy, and the frames that it refuses.
#include <NboAttrLog/TreeIn.h>

#include <string>

#include <Mox/Errors.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

using testing::IsEmpty;

// Writes down its notifications, and calls a function after each.
class RootWatcher final : public Root::NotifieeConst {
 public:
  using NotifieeConst::NotifieeConst;
  using NotifieeConst::onNode;
  void onEnabled() override { note("enabled"); }
  void onCount() override { note("count"); }
  void onNode(Number key) override { note("node(" + std::to_string(key.value()) + ")"); }

  std::string events_;
  std::function<void()> then_;

 private:
  void note(const std::string& what) {
    events_ += what + " ";
    if (then_) then_();
  }
};

// A session that keeps copies, whose peer is the test and has sent hello.
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
  // A copy of root/a with nodes of these keys, as an earlier connection left it.
  void copyWith(std::initializer_list<U32> keys) {
    EXPECT_TRUE(send(rootFrame));
    for (const U32 key : keys) {
      const std::string hex = hexOf(std::array{U8{0}, U8{0}, U8{0}, static_cast<U8>(key)});
      std::string frame = "06 00000001 01";
      frame.append(hex).append("0104").append(textHex("Test::Node")).append(hex);
      EXPECT_TRUE(send(frame));
    }
    connect();
    EXPECT_TRUE(send(rootFrame));
  }
  Ptr<Root> root() { return host_.copy("root/a"); }

  TestHost host_;
  std::unique_ptr<Session> session_;
  FrameTaker taker_;
};

const std::string wholeBegin = "05 00000001 00 0104 01";
const std::string wholeEnd = "08 00000001 00 0104 01";
const std::string node7 = "06 00000001 01 00000007 0104" + textHex("Test::Node") + "00000007";
const std::string leaf1 =
    "06 00000001 02 00000007 00000001 0103" + textHex("Test::Leaf") + "00000001";

TEST_F(TreeInTest, directoryEntryAsksTheHostForACopy) {
  EXPECT_TRUE(send(rootFrame));
  EXPECT_EQ(host_.events(), "root(root/a) ");
  EXPECT_EQ(root()->name(), Name("a"));
}

TEST_F(TreeInTest, valuesGoThroughTheSettersAndNotify) {
  ASSERT_TRUE(send(rootFrame));
  const RootWatcher watcher(root());
  ASSERT_TRUE(send("04 00000001 00 0102 01 0103 00000003"));
  EXPECT_TRUE(root()->enabled());
  EXPECT_EQ(root()->count(), 3u);
  EXPECT_EQ(watcher.events_, "enabled count ");
  ASSERT_TRUE(send("04 00000001 00 0102 01 0103 00000003"));
  EXPECT_EQ(watcher.events_, "enabled count ");
}

TEST_F(TreeInTest, eachKindOfValueIsRead) {
  ASSERT_TRUE(send(rootFrame));
  ASSERT_TRUE(
      send("04 00000001 00 0105 0102030405060708 0107 7ff0000000000000 0108 0002 7570"
           "0109 00000004 010a c0a80001"));
  EXPECT_EQ(root()->total(), 0x0102030405060708u);
  EXPECT_EQ(root()->delay(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(root()->label(), "up");
  EXPECT_EQ(root()->mode(), fast);
  EXPECT_EQ(root()->address(), Number(0xc0a80001u));
}

TEST_F(TreeInTest, attributesBehindTheEndOfTheTableAreSkippedWithTheRestOfTheFrame) {
  ASSERT_TRUE(send(rootFrame));
  const U32 last = Root::attributes.first + Root::attributes.size - 1;
  ASSERT_LT(last, 0x01ffu);
  ASSERT_TRUE(send("04 00000001 00 0103 00000003 01ff 0102 7f"));
  EXPECT_EQ(root()->count(), 3u);
  ASSERT_TRUE(send("04 00000001 00 01ff"));
  EXPECT_FALSE(send("04 00000001 00 0106 00000003"));  // in the table, and never sent
}

TEST_F(TreeInTest, derivedAttributeIsComputedHere) {
  ASSERT_TRUE(send(rootFrame));
  ASSERT_TRUE(send("04 00000001 00 0103 00000003"));
  EXPECT_EQ(root()->twice(), 6u);
}

TEST_F(TreeInTest, membersComeAndGo) {
  ASSERT_TRUE(send(rootFrame));
  const RootWatcher watcher(root());
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send("04 00000001 01 00000007 0104 00000009"));
  EXPECT_EQ(root()->node(7)->uses(), 9u);
  ASSERT_TRUE(send(leaf1));
  ASSERT_TRUE(send("04 00000001 02 00000007 00000001 0103 01"));
  EXPECT_TRUE(root()->node(7)->leaf(Number(1))->expired());
  ASSERT_TRUE(send("07 00000001 00 0104 00000007"));
  EXPECT_EQ(root()->nodes(), 0u);
  EXPECT_EQ(watcher.events_, "node(7) node(7) ");
}

TEST_F(TreeInTest, additionOfAMemberThatIsThereFindsIt) {
  copyWith({7});
  const Ptr<Node> before = root()->node(7);
  ASSERT_TRUE(send(node7));
  EXPECT_EQ(root()->node(7), before);
}

TEST_F(TreeInTest, removalOfAMemberThatIsNotThereIsSilent) {
  ASSERT_TRUE(send(rootFrame));
  const RootWatcher watcher(root());
  EXPECT_TRUE(send("07 00000001 00 0104 00000007"));
  EXPECT_EQ(watcher.events_, "");
}

TEST_F(TreeInTest, walkThatNamesEveryMemberRemovesTheOthersAtItsEnd) {
  copyWith({3, 7, 9});
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(node7));
  EXPECT_EQ(root()->nodes(), 3u);
  ASSERT_TRUE(send(wholeEnd));
  EXPECT_EQ(root()->nodes(), 1u);
  EXPECT_TRUE(root()->node(7));
}

TEST_F(TreeInTest, interruptedWalkRemovesNothingBeforeItsLastEnd) {
  copyWith({3, 7, 9});
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send("08 00000001 00 0104 03"));
  EXPECT_EQ(root()->nodes(), 3u);
  ASSERT_TRUE(send("05 00000001 00 0104 03"));
  ASSERT_TRUE(send("06 00000001 01 00000009 0104" + textHex("Test::Node") + "00000009"));
  ASSERT_TRUE(send(wholeEnd));
  EXPECT_EQ(root()->nodes(), 2u);
  EXPECT_FALSE(root()->node(3));
}

TEST_F(TreeInTest, walkThatBeginsAgainForgetsTheNamesOfTheFirst) {
  copyWith({3, 7});
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(wholeEnd));
  EXPECT_EQ(root()->nodes(), 0u);
}

TEST_F(TreeInTest, walkThroughChangesRemovesNothingThatItDoesNotName) {
  copyWith({3, 7});
  ASSERT_TRUE(send("05 00000001 00 0104 00"));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send("08 00000001 00 0104 00"));
  EXPECT_EQ(root()->nodes(), 2u);
}

TEST_F(TreeInTest, walkInsideAMemberRemovesWhatTheMemberNoLongerHas) {
  ASSERT_TRUE(send(rootFrame));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send(leaf1));
  ASSERT_TRUE(send(wholeBegin));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send("05 00000001 01 00000007 0103 01"));
  ASSERT_TRUE(send("08 00000001 01 00000007 0103 01"));
  ASSERT_TRUE(send(wholeEnd));
  EXPECT_EQ(root()->node(7)->leaves(), 0u);
}

TEST_F(TreeInTest, walkInsideAMemberEndsWithTheMember) {
  ASSERT_TRUE(send(rootFrame));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send(leaf1));
  ASSERT_TRUE(send("05 00000001 01 00000007 0103 01"));
  ASSERT_TRUE(send("07 00000001 00 0104 00000007"));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send(leaf1));
  ASSERT_TRUE(send("08 00000001 01 00000007 0103 01"));
  EXPECT_EQ(root()->node(7)->leaves(), 1u);  // the walk that ends began in another member
}

TEST_F(TreeInTest, walkInsideARemovedMemberRemovesNothingFromTheNextMemberOfThatKey) {
  ASSERT_TRUE(send(writableRootFrame));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send(leaf1));
  ASSERT_TRUE(send("05 00000001 01 00000007 0103 01"));
  ASSERT_TRUE(send("07 00000001 00 0104 00000007"));
  root()->nodeIs(7)->leafIs(1);  // made on this side, so that no frame names it
  ASSERT_TRUE(send("08 00000001 01 00000007 0103 01"));
  EXPECT_EQ(root()->node(7)->leaves(), 1u);
}

TEST_F(TreeInTest, receivedValuesAreNotSentBack) {
  ASSERT_TRUE(send(writableRootFrame));
  ASSERT_TRUE(send("04 00000001 00 0103 00000003"));
  ASSERT_TRUE(send(node7));
  ASSERT_TRUE(send("04 00000001 01 00000007 0104 00000009"));
  ASSERT_TRUE(send("07 00000001 00 0104 00000007"));
  EXPECT_EQ(root()->count(), 3u);
  EXPECT_TRUE(session_->allSent());
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(TreeInTest, valuesWrittenByANotifieeOfReceivedOnesAreSent) {
  ASSERT_TRUE(send(writableRootFrame));
  RootWatcher watcher(root());
  watcher.then_ = [&] { root()->enabledIs(true); };
  ASSERT_TRUE(send("04 00000001 00 0103 00000003"));
  EXPECT_EQ(take(), framesOf({"04 00000001 00 0102 01"}));
}

TEST_F(TreeInTest, writableCopySendsTheValuesThatAreWrittenInIt) {
  ASSERT_TRUE(send(writableRootFrame));
  EXPECT_THAT(take(), IsEmpty());
  root()->countIs(8);
  root()->nodeIs(7)->usesIs(1);
  EXPECT_EQ(take(),
            framesOf({"04 00000001 00 0103 00000008", node7, "05 00000001 01 00000007 0103 01",
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
  ASSERT_TRUE(send(rootFrame));
  EXPECT_EQ(readOnlyErrorOf([&] { root()->countInc(1); }), "attribute count is read-only");
  EXPECT_EQ(readOnlyErrorOf([&] { root()->nodeIs(7); }), "attribute node is read-only");
  EXPECT_EQ(readOnlyErrorOf([&] { root()->nodeNotify(); }), "attribute node is read-only");
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(TreeInTest, writingAMemberOfAReadOnlyCopyIsAnError) {
  ASSERT_TRUE(send(rootFrame));
  ASSERT_TRUE(send(node7));
  EXPECT_EQ(readOnlyErrorOf([&] { root()->node(7)->usesIs(1); }), "attribute uses is read-only");
}

TEST_F(TreeInTest, memberThatOutlivedAConnectionIsReadOnlyInTheNext) {
  copyWith({7});
  session_.reset();
  root()->node(7)->usesIs(1);  // no connection makes it a copy now
  connect();
  ASSERT_TRUE(send(rootFrame));
  ASSERT_TRUE(send(node7));
  EXPECT_EQ(readOnlyErrorOf([&] { root()->node(7)->usesIs(2); }), "attribute uses is read-only");
}

TEST_F(TreeInTest, copyMayBeWrittenOnceTheConnectionIsGone) {
  ASSERT_TRUE(send(rootFrame));
  session_.reset();
  root()->countIs(4);
  EXPECT_EQ(root()->count(), 4u);
}

TEST_F(TreeInTest, writingAReadOnlyCopyFromANotificationIsAnError) {
  ASSERT_TRUE(send(rootFrame));
  RootWatcher watcher(root());
  watcher.then_ = [&] {
    watcher.then_ = nullptr;
    EXPECT_EQ(readOnlyErrorOf([&] { root()->enabledIs(true); }), "attribute enabled is read-only");
  };
  ASSERT_TRUE(send("04 00000001 00 0103 00000003"));
  EXPECT_EQ(watcher.events_, "count enabled ");
}

TEST(ReadOnlyTreeInTest, updateOfAReadOnlyEntityNamesEntityAndPeer) {
  struct QuietHost final : TreeOut::Host {
    OutStream& out() override { return out_; }
    bool deferred() const override { return false; }
    void deferredIs() override {}
    void transmit() override {}
    OutStream out_;
  };
  QuietHost host;
  const Ptr<Root> root = makePtr<Root>("a");
  TreeOut out(host, 1, "root/a", root, TreeOut::Copy::original, false);
  TreeIn in(root, false, out);
  const auto removal = bytesOf("0104 00000007");
  Reader reader(removal);
  try {
    in.handleRemoval({.root = 1}, reader, "uid 7");
    FAIL() << "no error";
  } catch (const InternalError& error) {
    EXPECT_STREQ(error.what(), "write-update from readonly proxy: a peerName: uid 7");
  }
}

TEST_F(TreeInTest, ignoredEntryIsSkippedWithAllFramesThatNameIt) {
  host_.ignores_ = true;
  EXPECT_TRUE(send(rootFrame));
  EXPECT_TRUE(send("04 00000001 00 0103 00000003"));
  EXPECT_TRUE(send(node7));
  EXPECT_TRUE(send("03 00000001"));
  EXPECT_EQ(host_.events(), "root(root/a) rootDel(root/a) ");
}

TEST_F(TreeInTest, endOfAnEntryIsReportedWithItsPath) {
  ASSERT_TRUE(send(rootFrame));
  host_.events();
  ASSERT_TRUE(send("03 00000001"));
  EXPECT_EQ(host_.events(), "rootDel(root/a) ");
  EXPECT_FALSE(send("04 00000001 00 0103 00000003"));
}

}  // namespace
}  // namespace Mox::NboAttrLog
