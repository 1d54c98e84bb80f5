// Frames that a serving session must not send to one that keeps copies.
#include <string>

#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

class SessionCopyTest : public testing::Test {
 protected:
  bool send(std::string_view hex) { return session_.input(framed(hex)); }
  void greet() {
    ASSERT_TRUE(send(helloFrame));
    ASSERT_TRUE(send(rootFrame));
  }

  TestHost host_;
  Session session_{host_, {.name = "copy", .peerName = "agent"}};
};

TEST_F(SessionCopyTest, currentReachesTheHost) {
  greet();
  host_.events();
  ASSERT_TRUE(send(currentFrame));
  EXPECT_EQ(host_.events(), "current ");
}

TEST_F(SessionCopyTest, questionIsAnswered) {
  greet();
  FrameTaker taker;
  taker.take(session_.stream());
  ASSERT_TRUE(send("0a 00000005"));
  session_.drain();
  EXPECT_EQ(taker.take(session_.stream()), Frames{"0b00000005"});
}

TEST_F(SessionCopyTest, valuesThatAreWrittenTogetherShareAFrame) {
  ASSERT_TRUE(send(helloFrame));
  ASSERT_TRUE(send(writableRootFrame));
  FrameTaker taker;
  taker.take(session_.stream());
  const Ptr<Root> root = host_.copy("root/a");
  session_.writeTogether([&] {
    root->countIs(9);
    root->enabledIs(!root->enabled());
  });
  const std::string enabled = root->enabled() ? "01" : "00";
  EXPECT_EQ(taker.take(session_.stream()),
            framesOf({"04 00000001 00 0102 " + enabled + " 0103 00000009"}));
  root->countIs(10);
  EXPECT_EQ(taker.take(session_.stream()), framesOf({"04 00000001 00 0103 0000000a"}));
}

TEST_F(SessionCopyTest, numberIsGivenOnce) {
  greet();
  EXPECT_FALSE(
      send("02 00000001" + textHex("root/b") + "00" + textHex("Test::Root") + "05" + textHex("b")));
  EXPECT_EQ(session_.fault(), "a directory entry that does not belong here");
}

TEST_F(SessionCopyTest, pathIsGivenOnceAtATime) {
  greet();
  EXPECT_FALSE(
      send("02 00000002" + textHex("root/a") + "01" + textHex("Test::Root") + "05" + textHex("a")));
  EXPECT_EQ(session_.fault(), "a directory entry that does not belong here");
}

TEST_F(SessionCopyTest, copyIsOfTheTypeThatWasAnnounced) {
  ASSERT_TRUE(send(helloFrame));
  host_.keeps_ = makePtr<Root>("a");
  EXPECT_FALSE(send("02 00000002" + textHex("root/a") + "00" + textHex("Test::Other") + "05" +
                    textHex("a")));
  EXPECT_EQ(session_.fault(), "a directory entry of an unknown type");
}

TEST_F(SessionCopyTest, writableIsYesOrNo) {
  ASSERT_TRUE(send(helloFrame));
  EXPECT_FALSE(
      send("02 00000002" + textHex("root/a") + "02" + textHex("Test::Root") + "05" + textHex("a")));
}

TEST_F(SessionCopyTest, entityFrameNeedsItsEntry) {
  greet();
  EXPECT_FALSE(send("04 00000002 00 0103 00000009"));
  EXPECT_EQ(session_.fault(), "a frame for a directory entry that does not exist");
}

TEST_F(SessionCopyTest, entryEndsOnce) {
  greet();
  ASSERT_TRUE(send("03 00000001"));
  EXPECT_FALSE(send("03 00000001"));
  EXPECT_EQ(session_.fault(), "the end of a directory entry that does not exist");
}

TEST_F(SessionCopyTest, faultLeavesTheCopyAsItWas) {
  greet();
  ASSERT_TRUE(send("04 00000001 00 0103 00000009"));
  EXPECT_FALSE(send("04 00000001 00 0109 00000003"));
  EXPECT_EQ(host_.copy("root/a")->count(), 9u);
  EXPECT_EQ(host_.copy("root/a")->mode(), slow);
}

}  // namespace
}  // namespace Mox::NboAttrLog
