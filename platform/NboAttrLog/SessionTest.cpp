// The begin, the answers and the end of a connection.
#include <NboAttrLog/Session.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionTestSupport.h"

namespace Mox::NboAttrLog {
namespace {

using testing::IsEmpty;

class SessionTest : public ServingTest {
 protected:
  // Serves root/a; the peer has not sent hello.
  void serveBeforeHello() {
    directory_.entryIs("root/a", root_, Access::readOnly);
    serve();
    takeWithoutDraining();
  }
};

TEST_F(SessionTest, nothingButTheHelloIsSentBeforeThePeersHello) {
  directory_.entryIs("root/a", root_, Access::readOnly);
  serve();
  root_->countIs(1);
  directory_.entryIs("root/b", makePtr<Root>("b"), Access::readOnly);
  session_->ask(1);
  EXPECT_EQ(take().size(), 1u);
  EXPECT_EQ(host_.outputs_, 0);
}

TEST_F(SessionTest, helloNotifiesTheHostOfOutput) {
  serveBeforeHello();
  ASSERT_TRUE(send(helloFrame));
  EXPECT_TRUE(session_->greeted());
  EXPECT_EQ(host_.outputs_, 1);
}

TEST_F(SessionTest, helloGivesOwnRights) {
  TestHost host;
  Session copy(host, {.name = "copy", .peerName = "agent"});
  ASSERT_TRUE(copy.input(framed("01 4d6f784c 0001 408f400000000000 01" + textHex("agent"))));
  EXPECT_EQ(copy.ownRights(), Rights::configure);
}

struct FaultCase {
  const char* rule;
  std::string frame;
  const char* fault;
};
std::string ruleOf(const testing::TestParamInfo<FaultCase>& info) { return info.param.rule; }

class FirstFrameTest : public SessionTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(FirstFrameTest, endsTheConnection) {
  serveBeforeHello();
  EXPECT_FALSE(send(GetParam().frame));
  EXPECT_EQ(session_->fault(), GetParam().fault) << GetParam().frame;
  EXPECT_FALSE(session_->greeted());
  EXPECT_EQ(take(), framesOf({"0c" + textHex(GetParam().fault)}));
}

INSTANTIATE_TEST_SUITE_P(
    Hello, FirstFrameTest,
    testing::Values(FaultCase{"wrongMagic", "01 4d6f784d 0001 0000000000000000 00 0000",
                              "the peer does not send an attribute log"},
                    FaultCase{"tooShortForAVersion", "01 4d6f784c 00",
                              "the peer does not send an attribute log"},
                    FaultCase{"wrongVersion", "01 4d6f784c 0002 00",
                              "the peer has version 2 of the attribute log, not 1"},
                    FaultCase{"withoutName", "01 4d6f784c 0001 0000000000000000 00",
                              "a hello that contradicts itself"},
                    FaultCase{"unknownRights", "01 4d6f784c 0001 0000000000000000 02 0000",
                              "a hello that contradicts itself"},
                    FaultCase{"moreThanAHello", "01 4d6f784c 0001 0000000000000000 00 0000 00",
                              "a hello that contradicts itself"},
                    FaultCase{"anotherFrameFirst", "0a 00000001", "the first frame is not a hello"},
                    FaultCase{"unknownFrameFirst", "ff", "the first frame is not a hello"}),
    ruleOf);

class HostileFrameTest : public SessionTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(HostileFrameTest, endsTheConnection) {
  root_->countIs(5);
  root_->nodeIs(7)->usesIs(6);
  serveRoot(Access::configurable, Rights::read);
  EXPECT_FALSE(send(GetParam().frame));
  EXPECT_EQ(session_->fault(), GetParam().fault) << GetParam().frame;
  EXPECT_EQ(take(), framesOf({"0c" + textHex(GetParam().fault)}));
  EXPECT_FALSE(root_->enabled());
  EXPECT_EQ(root_->count(), 5u);
  EXPECT_EQ(root_->nodes(), 1u);
  EXPECT_EQ(root_->node(7)->uses(), 6u);
  EXPECT_EQ(root_->node(7)->leaves(), 0u);
}

const char* const readOnlyRoot = "write-update from readonly proxy: a peerName: uid 7";
const char* const readOnlyNode = "write-update from readonly proxy: a/node[7] peerName: uid 7";

INSTANTIATE_TEST_SUITE_P(
    PeerWithoutRights, HostileFrameTest,
    testing::Values(
        FaultCase{"attribute", "04 00000001 00 0103 00000009", readOnlyRoot},
        FaultCase{"attributeOfAMember", "04 00000001 01 00000007 0104 00000009", readOnlyNode},
        FaultCase{"noAttribute", "04 00000001 00", readOnlyRoot},
        FaultCase{"addition", "06 00000001 01 00000009 0104" + textHex("Test::Node") + "00000009",
                  readOnlyRoot},
        FaultCase{"additionToAMember",
                  "06 00000001 02 00000007 00000001 0103" + textHex("Test::Leaf") + "00000001",
                  readOnlyNode},
        FaultCase{"removal", "07 00000001 00 0104 00000007", readOnlyRoot},
        FaultCase{"begin", "05 00000001 00 0104 01", readOnlyRoot},
        FaultCase{"end", "08 00000001 00 0104 01", readOnlyRoot},
        FaultCase{"root", rootFrame, "a directory entry that does not belong here"},
        FaultCase{"rootGone", "03 00000001", "the end of a directory entry that does not exist"},
        FaultCase{"current", "09", "a notice that does not belong here"},
        FaultCase{"secondHello", helloFrame, "a hello that contradicts itself"},
        FaultCase{"unknownType", "0d", "a frame of an unknown type"},
        FaultCase{"typeZero", "00", "a frame of an unknown type"},
        FaultCase{"shortQuestion", "0a 000000", "a question that is too short or too long"},
        FaultCase{"longQuestion", "0a 0000000000", "a question that is too short or too long"},
        FaultCase{"deepReference", "04 00000001 05 00000001 00000001 00000001 00000001 00000001",
                  "a frame that names no entity"},
        FaultCase{"noReference", "04 0000", "a frame that names no entity"},
        FaultCase{"absentMember", "04 00000001 01 00000008 0104 00000009",
                  "attributes of a member that does not exist"},
        FaultCase{"memberOfNoCollection", "04 00000001 03 00000007 00000001 00000001 0104 00000009",
                  "attributes of a member that does not exist"}),
    ruleOf);

class BadWriteTest : public SessionTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(BadWriteTest, endsTheConnection) {
  root_->countIs(5);
  root_->nodeIs(7)->usesIs(6);
  serveRoot(Access::configurable, Rights::configure);
  host_.refused_ = "label";
  EXPECT_FALSE(send(GetParam().frame));
  EXPECT_EQ(session_->fault(), GetParam().fault) << GetParam().frame;
  EXPECT_FALSE(root_->enabled());
  EXPECT_EQ(root_->count(), 5u);
  EXPECT_EQ(root_->label(), "");
  EXPECT_EQ(root_->mode(), slow);
  EXPECT_EQ(root_->nodes(), 1u);
  EXPECT_EQ(root_->node(7)->leaves(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    PeerWithRights, BadWriteTest,
    testing::Values(
        FaultCase{"flagOfTwo", "04 00000001 00 0102 02", "an invalid value of enabled"},
        FaultCase{"shortValue", "04 00000001 00 0103 000000", "an invalid value of count"},
        FaultCase{"textBeyondTheEnd", "04 00000001 00 0108 0003 6162", "an invalid value of label"},
        FaultCase{"textTooLong", "04 00000001 00 0108" + textHex(std::string(256, 'x')),
                  "an invalid value of label"},
        FaultCase{"enumeratorThatIsNone", "04 00000001 00 0109 00000003",
                  "mode: Test::Mode has no value 3"},
        FaultCase{"refusedByTheHost", "04 00000001 00 0108 0001 61", "label is not for you"},
        FaultCase{"derivedAttribute", "04 00000001 00 0106 00000003",
                  "an attribute that Test::Root does not receive"},
        FaultCase{"key", "04 00000001 00 0101 0001 62",
                  "an attribute that Test::Root does not receive"},
        FaultCase{"collectionAsAttribute", "04 00000001 00 0104 00",
                  "an attribute that Test::Root does not receive"},
        FaultCase{"attributeWithoutValue", "04 00000001 00 010b 00",
                  "an attribute that Test::Root does not receive"},
        FaultCase{"unknownAttribute", "04 00000001 00 010c 00",
                  "an attribute that Test::Root does not receive"},
        FaultCase{"halfAnIdentifier", "04 00000001 00 01",
                  "an attribute that Test::Root does not receive"},
        FaultCase{"additionOfAnotherType",
                  "06 00000001 01 00000009 0104" + textHex("Test::Leaf") + "00000009",
                  "an addition of a type that does not belong"},
        FaultCase{"additionOfTwoKeys",
                  "06 00000001 01 00000009 0104" + textHex("Test::Node") + "00000008",
                  "an addition that contradicts itself"},
        FaultCase{"additionOfTheEntryItself",
                  "06 00000001 00 0104" + textHex("Test::Node") + "00000008",
                  "an addition that contradicts itself"},
        FaultCase{"additionToNoCollection",
                  "06 00000001 01 00000009 0103" + textHex("Test::Node") + "00000009",
                  "an addition to what is not a collection"},
        FaultCase{"additionToAnAbsentMember",
                  "06 00000001 02 00000009 00000001 0103" + textHex("Test::Leaf") + "00000001",
                  "an addition to a member that does not exist"},
        FaultCase{"removalFromNoCollection", "07 00000001 00 0103 00000007",
                  "a removal from what is not a collection"},
        FaultCase{"removalFromAnAbsentMember", "07 00000001 01 00000009 0103 00000007",
                  "a removal from a member that does not exist"},
        FaultCase{"longRemoval", "07 00000001 00 0104 0000000700",
                  "a removal that is too short or too long"},
        FaultCase{"beginOfNoCollection", "05 00000001 00 0103 00",
                  "a transaction of what is not a collection"},
        FaultCase{"beginInAnAbsentMember", "05 00000001 01 00000009 0103 00",
                  "a transaction of a member that does not exist"},
        FaultCase{"shortEnd", "08 00000001 00 0104",
                  "a transaction marker that is too short or too long"}),
    ruleOf);

TEST_F(SessionTest, valuesThatAPeerWritesAreNotSentBackToIt) {
  serveRoot(Access::configurable, Rights::configure);
  ASSERT_TRUE(send("04 00000001 00 0103 00000009"));
  EXPECT_EQ(root_->count(), 9u);
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(SessionTest, valuesThatAPeerWritesAreSentToOtherPeers) {
  serveRoot(Access::configurable, Rights::configure);
  TestHost otherHost;
  Session other(otherHost, {.name = "agent", .peerName = "uid 8"}, &directory_);
  FrameTaker otherTaker;
  ASSERT_TRUE(other.input(framed(helloFrame)));
  other.drain();
  otherTaker.take(other.stream());
  ASSERT_TRUE(send("04 00000001 00 0103 00000009"));
  EXPECT_EQ(otherTaker.take(other.stream()), framesOf({"04 00000001 00 0103 00000009"}));
}

TEST_F(SessionTest, rightsDoNotReachAnEntryThatIsReadOnly) {
  serveRoot(Access::readOnly, Rights::configure);
  EXPECT_FALSE(send("04 00000001 00 0103 00000009"));
  EXPECT_EQ(session_->fault(), readOnlyRoot);
}

TEST_F(SessionTest, announcementReportsWhetherThisPeerMayWrite) {
  directory_.entryIs("root/a", root_, Access::configurable);
  serve(Rights::configure);
  ASSERT_TRUE(send(helloFrame));
  EXPECT_EQ(take().at(1), framesOf({writableRootFrame}).front());
}

TEST_F(SessionTest, valuesInFrontOfAnUnreadableOneAreNotTaken) {
  serveRoot(Access::configurable, Rights::configure);
  EXPECT_FALSE(send("04 00000001 00 0102 01 0103 000000"));
  EXPECT_FALSE(root_->enabled());
}

TEST_F(SessionTest, valuesInFrontOfARefusedOneAreNotTaken) {
  serveRoot(Access::configurable, Rights::configure);
  host_.refused_ = "count";
  EXPECT_FALSE(send("04 00000001 00 0102 01 0103 00000007"));
  EXPECT_EQ(session_->fault(), "count is not for you");
  EXPECT_FALSE(root_->enabled());
}

TEST_F(SessionTest, valuesInFrontOfOneThatItsTypeDoesNotHaveAreTaken) {
  serveRoot(Access::configurable, Rights::configure);
  EXPECT_FALSE(send("04 00000001 00 0102 01 0109 00000003"));
  EXPECT_TRUE(root_->enabled());
}

TEST_F(SessionTest, writeToAnEntryThatHasGoneSinceIsForgotten) {
  serveRoot(Access::configurable, Rights::configure);
  directory_.entryDel("root/a");
  EXPECT_TRUE(send("04 00000001 00 0103 00000009"));
  EXPECT_EQ(root_->count(), 0u);
}

TEST_F(SessionTest, questionIsAnsweredAfterEverythingRemembered) {
  serveRoot();
  stall();
  root_->countIs(3);
  ASSERT_TRUE(send("0a 00000005"));
  unstall();
  EXPECT_EQ(take(), framesOf({"04 00000001 00 0103 00000003", "0b 00000005"}));
}

TEST_F(SessionTest, answerReachesTheHost) {
  serveRoot();
  ASSERT_TRUE(send("0b 00000005"));
  EXPECT_EQ(host_.events(), "answer(5) ");
}

TEST_F(SessionTest, laterQuestionReplacesThoseBeforeIt) {
  serveRoot();
  session_->ask(1);
  session_->ask(2);
  ASSERT_TRUE(send("0a 00000005"));
  ASSERT_TRUE(send("0a 00000006"));
  EXPECT_EQ(take(), framesOf({"0a 00000002", "0b 00000006"}));
}

TEST_F(SessionTest, peersRefusalEndsTheConnectionWithoutAnAnswer) {
  serveRoot();
  EXPECT_FALSE(send("0c 0004 66756c6c"));
  EXPECT_EQ(session_->fault(), "the peer ended the connection: full");
  EXPECT_EQ(session_->refusal(), "full");
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(SessionTest, refusalMayComeInsteadOfAHello) {
  serveBeforeHello();
  EXPECT_FALSE(send("0c 0004 66756c6c"));
  EXPECT_EQ(session_->refusal(), "full");
}

TEST_F(SessionTest, refusalIsSentOnce) {
  serveRoot();
  session_->refuse("first");
  session_->refuse("second");
  EXPECT_EQ(session_->fault(), "first");
  EXPECT_EQ(takeWithoutDraining(), framesOf({"0c" + textHex("first")}));
}

TEST_F(SessionTest, refusalIsNotSentIntoAFullStream) {
  serveRoot();
  stall();
  session_->refuse("full");
  EXPECT_EQ(session_->fault(), "full");
  const Frames frames = takeWithoutDraining();
  EXPECT_EQ(frames.back().substr(0, 2), "04");
}

TEST_F(SessionTest, nothingIsReadOrBuiltAfterTheEnd) {
  serveRoot(Access::configurable, Rights::configure);
  session_->refuse("over");
  takeWithoutDraining();
  EXPECT_FALSE(send("04 00000001 00 0103 00000009"));
  EXPECT_EQ(root_->count(), 0u);
  session_->ask(1);
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(SessionTest, framesBehindABadOneAreNotActedOn) {
  serveRoot(Access::configurable, Rights::configure);
  auto bytes = framed("ff");
  const auto second = framed("04 00000001 00 0103 00000009");
  bytes.insert(bytes.end(), second.begin(), second.end());
  EXPECT_FALSE(session_->input(bytes));
  EXPECT_EQ(root_->count(), 0u);
}

TEST_F(SessionTest, impossibleLengthEndsTheConnection) {
  serveRoot();
  EXPECT_FALSE(session_->input(bytesOf("ffff")));
  EXPECT_EQ(session_->fault(), "a frame of an impossible length");
}

TEST_F(SessionTest, framesMayBeSplitAnywhere) {
  auto bytes = framed(helloFrame);
  for (const auto& hex : {"04 00000001 00 0103 00000009 0102 01", "0a 00000005"}) {
    const auto frame = framed(hex);
    bytes.insert(bytes.end(), frame.begin(), frame.end());
  }
  for (size_t at = 0; at <= bytes.size(); ++at) {
    SCOPED_TRACE(at);
    Directory directory;
    const Ptr<Root> root = makePtr<Root>("a");
    directory.entryIs("root/a", root, Access::configurable);
    Session session(host_, {.name = "agent", .peerName = "uid 0", .rights = Rights::configure},
                    &directory);
    ASSERT_TRUE(session.input(std::span(bytes).first(at)));
    ASSERT_TRUE(session.input(std::span(bytes).subspan(at)));
    EXPECT_EQ(root->count(), 9u);
    EXPECT_TRUE(root->enabled());
    session.drain();
    FrameTaker taker;
    EXPECT_EQ(taker.take(session.stream()).back(), "0b00000005");
  }
}

TEST_F(SessionTest, destroyedSessionIsNotNotifiedByItsEntities) {
  serveRoot();
  session_.reset();
  const int before = host_.outputs_;
  root_->countIs(1);
  directory_.entryDel("root/a");
  EXPECT_EQ(host_.outputs_, before);
}

}  // namespace
}  // namespace Mox::NboAttrLog
