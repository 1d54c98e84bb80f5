#include "RequestSession.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RequestTestSupport.h"

namespace Agent {
namespace {

using Mox::trace;
using Mox::TraceHandle;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Lines = std::vector<std::string>;

TEST_F(RequestSessionTest, callsAnOperationOfAnInterfacesQuerier) {
  agent_.status()->v2ReportReceivedInc(7);
  EXPECT_THAT(answerTo(R"({"op":"call","interface":"eth0","operation":"clearCounters"})"),
              ElementsAre(ok));
  EXPECT_EQ(agent_.status()->v2ReportReceived(), 0u);
  EXPECT_EQ(agent_.turns(), 2);
}

TEST_F(RequestSessionTest, unknownNamesAreAnsweredWithTheKnownOnes) {
  EXPECT_THAT(
      answerTo(R"({"op":"call","interface":"eth7","operation":"clearCounters"})"),
      ElementsAre(R"({"error":"the agent has no interface eth7; it has: eth0","badUse":true})"));
  EXPECT_THAT(answerTo(R"({"op":"call","interface":"eth0","operation":"explode"})"),
              ElementsAre(R"({"error":"a querier has no operation explode; it has: )"
                          R"(handleInitialized, becomeQuerier, clearCounters","badUse":true})"));
  // Operators cannot call an operation that needs an argument.
  EXPECT_THAT(answerTo(R"({"op":"call","interface":"eth0","operation":"doRxPkt"})"),
              ElementsAre(HasSubstr("a querier has no operation doRxPkt")));
  EXPECT_THAT(answerTo(R"({"op":"call","interface":"eth0","operation":"mtu"})"),
              ElementsAre(HasSubstr("a querier has no operation mtu")));
  EXPECT_THAT(
      answerTo(R"({"op":"walk"})"),
      ElementsAre(
          R"({"error":"there is no \"walk\"; \"op\" is one of: get, complete, call, )"
          R"(clearGroups, config, reload, trace, traceHandles, traceLevel","badUse":true})"));
  EXPECT_THAT(answerTo(R"({"op":"trace","handle":"Nobody"})"),
              ElementsAre(StartsWith(
                  R"({"error":"there is no trace handle Nobody; there are: GmpAttrLogSm, )")));
}

TEST_F(RequestSessionTest, interfaceThatIsDownHasNoQuerierToCall) {
  agent_.interfaceDown();
  EXPECT_THAT(answerTo(R"({"op":"call","interface":"eth0","operation":"clearCounters"})"),
              ElementsAre(R"({"error":"there is no querier on eth0 now: the interface is down or )"
                          R"(gone; try again when it is up and has an IPv4 address"})"));
}

TEST_F(RequestSessionTest, getsAValueForProgramsAndForPeople) {
  EXPECT_THAT(answerTo(R"({"op":"get","path":"config/eth0/queryInterval"})"),
              ElementsAre(R"({"value":125.0,"text":"125"})"));
  EXPECT_THAT(answerTo(R"({"op":"get","path":""})"),
              ElementsAre(HasSubstr(R"("value":["config/eth0","status/eth0"])")));
  EXPECT_THAT(answerTo(R"({"op":"get","path":"config/eth0/robust"})"),
              ElementsAre(HasSubstr("has no attribute \\\"robust\\\"")));
}

TEST_F(RequestSessionTest, veryLargeCollectionIsAnsweredWithItsFirstKeysAndTheNumberOfTheOthers) {
  for (Mox::U32 n = 0; n < 10'002; ++n) agent_.status()->groupIs(Ilvo::IpAddr(0xe8000000u + n));
  const Lines lines = answerTo(R"({"op":"get","path":"status/eth0/group"})");
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_THAT(lines[0], StartsWith(R"({"value":["232.0.0.0","232.0.0.1",)"));
  EXPECT_THAT(lines[0], HasSubstr(R"("232.0.39.15","and 2 more"],"text":["232.0.0.0",)"));
  EXPECT_THAT(lines[0], testing::EndsWith(R"("and 2 more"]})"));
}

// So that a client who asks for much does not keep the loop from packets.
TEST_F(RequestSessionTest, largeAnswerTakesManySteps) {
  for (Mox::U32 n = 0; n < 10'000; ++n) agent_.status()->groupIs(Ilvo::IpAddr(0xe8000000u + n));
  for (const char* request : {R"({"op":"get","path":"status/eth0/group"})",
                              R"({"op":"complete","prefix":"status/eth0/group[232.0.39.1"})"}) {
    send(std::string(request) + "\n");
    size_t steps = 0;
    while (session_->out().empty()) {
      ASSERT_TRUE(session_->isWorking());
      ++steps;
    }
    EXPECT_GE(steps, 2u) << request;
    session_->taken(session_->out().size());
  }
}

TEST_F(RequestSessionTest, completesAPath) {
  EXPECT_THAT(answerTo(R"({"op":"complete","prefix":"config/eth0/rob"})"),
              ElementsAre(R"({"paths":["config/eth0/robustness"]})"));
  EXPECT_THAT(answerTo(R"({"op":"complete","prefix":"x"})"), ElementsAre(R"({"paths":[]})"));
}

TEST_F(RequestSessionTest, clientThatCanOnlyReadNeitherCallsNorSetsLevels) {
  rightsAreToRead();
  const int level = TraceHandle::named("IgmpPacket").ringLevel();
  agent_.status()->v2ReportReceivedInc(7);
  EXPECT_THAT(answerTo(R"({"op":"call","interface":"eth0","operation":"clearCounters"})"),
              ElementsAre(R"({"error":"not permitted to call operations: be root or the user that )"
                          R"(the agent runs as, or a member of the group that its )"
                          R"(--configure-group names"})"));
  EXPECT_THAT(answerTo(R"({"op":"traceLevel","level":9})"),
              ElementsAre(HasSubstr("not permitted to set trace levels: be root")));
  EXPECT_EQ(agent_.status()->v2ReportReceived(), 7u);
  EXPECT_EQ(agent_.turns(), 0);
  EXPECT_EQ(TraceHandle::named("IgmpPacket").ringLevel(), level);
  EXPECT_THAT(answerTo(R"({"op":"traceHandles"})"), ElementsAre(HasSubstr("IgmpPacket")));
  EXPECT_THAT(answerTo(R"({"op":"trace"})"), testing::Contains("{\"end\":true}"));
  EXPECT_THAT(answerTo(R"({"op":"get","path":"status/eth0/joins"})"),
              ElementsAre(R"({"value":0,"text":"0"})"));
}

TEST_F(RequestSessionTest, levelIsThatOfOneHandleOrOfAll) {
  EXPECT_THAT(answerTo(R"({"op":"traceLevel","handle":"IgmpPacket","level":8})"), ElementsAre(ok));
  EXPECT_EQ(TraceHandle::named("IgmpPacket").ringLevel(), 8);
  EXPECT_EQ(TraceHandle::named("GmpIgmpQuerierSm").ringLevel(), TraceHandle::defaultRingLevel);
  EXPECT_THAT(answerTo(R"({"op":"traceHandles","handle":"IgmpPacket"})"),
              ElementsAre(R"({"handles":[{"name":"IgmpPacket","level":8}]})"));
  EXPECT_THAT(answerTo(R"({"op":"traceLevel","level":-1})"), ElementsAre(ok));
  for (const TraceHandle* handle : TraceHandle::all()) EXPECT_EQ(handle->ringLevel(), -1);
}

TEST_F(RequestSessionTest, valuesThatAreNotPermittedAreRefusedWithoutEffect) {
  const Lines level(1,
                    R"({"error":"\"level\" must be a whole number from -1 to 9","badUse":true})");
  for (const char* number : {"-2", "10", "3.5", "\"3\"", "null", "1e300", "4294967299",
                             "18446744073709551615", "-9223372036854775808"}) {
    EXPECT_EQ(answerTo(R"({"op":"traceLevel","level":)" + std::string(number) + "}"), level)
        << number;
  }
  EXPECT_EQ(answerTo(R"({"op":"traceLevel"})"), level);
  EXPECT_EQ(TraceHandle::named("IgmpPacket").ringLevel(), TraceHandle::defaultRingLevel);
  EXPECT_THAT(answerTo(R"({"op":"trace","follow":1})"),
              ElementsAre(HasSubstr(R"(\"follow\" must be true or false)")));
  EXPECT_THAT(answerTo(R"({"op":"trace","handle":7})"),
              ElementsAre(HasSubstr(R"(\"handle\" must be a string)")));
  EXPECT_THAT(answerTo(R"({"op":["trace"]})"),
              ElementsAre(HasSubstr(R"(\"op\" must be a string)")));
  EXPECT_THAT(answerTo("{}"), ElementsAre(HasSubstr(R"(the request lacks \"op\")")));
  EXPECT_THAT(answerTo(R"({"op":"call","interface":"eth0"})"),
              ElementsAre(HasSubstr(R"(the request lacks \"operation\")")));
  EXPECT_THAT(answerTo(R"({"op":"trace","folow":true})"),
              ElementsAre(HasSubstr(R"(\"trace\" has no \"folow\"; it has: handle, follow)")));
  EXPECT_FALSE(session_->ended());
}

TEST_F(RequestSessionTest, linesAreCutAtTheirEndsHoweverTheyArrive) {
  const std::string requests = R"({"op":"traceLevel","handle":"IgmpPacket","level":4})"
                               "\r\n"
                               R"({"op":"traceLevel","handle":"IgmpPacket","level":5})"
                               "\n";
  for (const char byte : requests) send(std::string(1, byte));
  EXPECT_THAT(received(), ElementsAre(ok, ok));
  EXPECT_EQ(TraceHandle::named("IgmpPacket").ringLevel(), 5);
}

TEST_F(RequestSessionTest, lineThatIsNoObjectEndsItAndLaterLinesHaveNoEffect) {
  const std::string level = R"({"op":"traceLevel","handle":"IgmpPacket","level":7})";
  for (const std::string& bad :
       {std::string(), std::string("hello"), std::string("[1]"), std::string("\"op\""),
        std::string("null"), std::string("{\"op\":\"trace\""), std::string("\xff\xfe{}"),
        std::string("{}{}"), std::string("{\"op\":\"tr\xc0\"}"), std::string("\0{}", 3),
        std::string(60000, '[')}) {
    session_.emplace(services_, Rights::configure);
    send(bad + "\n");
    EXPECT_THAT(
        answerTo(level),
        ElementsAre(StartsWith(R"({"error":"a request is one JSON object a line, such as)")))
        << bad.substr(0, 20);
    EXPECT_TRUE(session_->ended());
    EXPECT_EQ(session_->room(), 0u);
    EXPECT_THAT(answerTo(level), IsEmpty());
  }
  EXPECT_EQ(TraceHandle::named("IgmpPacket").ringLevel(), TraceHandle::defaultRingLevel);
}

TEST_F(RequestSessionTest, longestLineIsReadAndALongerOneEndsIt) {
  std::string request = R"({"op":"traceLevel","level":2)";
  request += std::string(RequestSession::longestLine - 1 - request.size(), ' ') + "}";
  EXPECT_THAT(answerTo(request), ElementsAre(ok));
  EXPECT_EQ(session_->room(), RequestSession::longestLine + 1);
  send(std::string(RequestSession::longestLine, ' '));
  EXPECT_FALSE(session_->ended());
  EXPECT_EQ(session_->room(), 1u);
  send(" ");
  EXPECT_THAT(received(), ElementsAre(HasSubstr("a line of more than 65536 bytes is no request")));
  EXPECT_TRUE(session_->ended());
}

TEST_F(RequestSessionTest, lineOfAsManyKeysAsItHoldsEndsIt) {
  std::string keys;
  while (keys.size() + 100 < RequestSession::longestLine) {
    keys += fmt::format("\"{}\":[],", keys.size());
  }
  EXPECT_THAT(answerTo("{" + keys + R"("op":"traceHandles"})"),
              ElementsAre(R"({"error":"a request has at most 16 keys","badUse":true})"));
  EXPECT_TRUE(session_->ended());
}

TEST_F(RequestSessionTest, keysOfInnerObjectsCountToo) {
  std::string line = R"({"op":"traceHandles","handle":)";
  for (size_t key = 0; key < RequestSession::mostKeys; ++key) line += R"({"a":)";
  EXPECT_THAT(answerTo(line + "1" + std::string(RequestSession::mostKeys + 1, '}')),
              ElementsAre(HasSubstr("at most 16 keys")));
}

TEST_F(RequestSessionTest, waitingLinesAreBoundedAndAnsweredOneByOne) {
  const std::string call = R"({"op":"call","interface":"eth0","operation":"clearCounters"})"
                           "\n";
  size_t calls = 0;
  for (; session_->room() >= call.size(); ++calls) send(call);
  EXPECT_EQ(agent_.turns(), 0);
  session_->out();
  EXPECT_EQ(agent_.turns(), 2);
  session_->out();
  EXPECT_EQ(agent_.turns(), 2) << "the first answer has not been taken yet";
  EXPECT_THAT(received(), SizeIs(calls));
  EXPECT_EQ(agent_.turns(), static_cast<int>(2 * calls));
}

TEST_F(RequestSessionTest, clientThatEndsItsOutputIsAnsweredAndThenItEnds) {
  send("{\"op\":\"traceLevel\",\"level\":2}\n{\"op\":\"traceLevel\",\"level\":3}\n{\"op\"");
  session_->inEnd();
  EXPECT_FALSE(session_->ended());
  EXPECT_THAT(received(), ElementsAre(ok, ok));
  EXPECT_TRUE(session_->ended());
}

}  // namespace
}  // namespace Agent
