#include "RequestSession.h"

#include <algorithm>
#include <string>
#include <vector>

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
using Rights = Request::Rights;

constexpr const char* end = "{\"end\":true}";
constexpr size_t mostParts = 10'000;  // more than the ring fills, and than requests fit into a line

auto lostLines(const Lines& lines) {
  return std::ranges::count_if(lines, [](auto& line) { return line.starts_with("{\"lost"); });
}

Mox::U64 lostIn(const std::string& line) {
  return std::stoull(line.substr(std::string("{\"lost\":").size()));
}

class RequestSessionTest : public testing::Test {
 protected:
  void send(const std::string& text) { session_->in(text); }
  // All lines that it has now.
  Lines received() {
    std::string all;
    size_t parts = 0;
    for (std::string_view out = session_->out(); !out.empty(); out = session_->out()) {
      all += out;
      session_->taken(out.size());
      if (++parts == mostParts) {
        ADD_FAILURE() << "an answer without end";
        break;
      }
    }
    return linesOf(all);
  }
  Lines answerTo(const std::string& request) {
    send(request + "\n");
    return received();
  }
  void rightsAreToRead() { session_.emplace(services_, Rights::read); }

  RequestAgent agent_;
  const RequestServices services_ = agent_.services();
  std::optional<RequestSession> session_{std::in_place, services_, Rights::configure};
};

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
      ElementsAre(R"({"error":"there is no \"walk\"; \"op\" is one of: get, complete, call, )"
                  R"(clearGroups, trace, traceHandles, traceLevel","badUse":true})"));
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
  EXPECT_THAT(answerTo(R"({"op":"trace"})"), testing::Contains(end));
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

class TraceRequestTest : public RequestSessionTest {
 protected:
  TraceRequestTest() { fillRing(); }
  // Only what the tests trace.
  Lines traced(const std::string& more = "") {
    return answerTo(R"({"op":"trace","handle":"RequestTest")" + more + "}");
  }
};

TEST_F(TraceRequestTest, sendsTheRingFromItsOldestRecordOn) {
  Mox::virtualTimeIs(1000.0000004);
  trace<3>(testTrace(), "event ", 1, ' ', 2.5);
  Mox::virtualTimeIs(1001.25);
  trace<8>(testTrace(), "detail \"", '\xff', '"');
  const Lines lines = traced();
  ASSERT_GT(lines.size(), 1000u);
  EXPECT_THAT(lines.front(), HasSubstr("fills the ring"));
  EXPECT_THAT(
      Lines(lines.end() - 3, lines.end()),
      ElementsAre(R"({"time":1000.0,"level":3,"handle":"RequestTest","text":"event 1 2.5"})",
                  "{\"time\":1001.25,\"level\":8,\"handle\":\"RequestTest\","
                  "\"text\":\"detail \\\"\xef\xbf\xbd\\\"\"}",
                  end));
}

TEST_F(TraceRequestTest, otherHandlesAreLeftOut) {
  trace<3>(TraceHandle::named("IgmpPacket"), "of another");
  trace<3>(testTrace(), "of ours");
  const Lines lines = traced();
  EXPECT_THAT(lines, testing::Contains(HasSubstr("of ours")));
  EXPECT_THAT(lines, Not(testing::Contains(HasSubstr("of another"))));
  EXPECT_THAT(answerTo(R"({"op":"trace"})"), testing::Contains(HasSubstr("of another")));
}

TEST_F(TraceRequestTest, recordsAfterTheRequestAreNotPartOfTheAnswer) {
  send("{\"op\":\"trace\"}\n");
  session_->out();
  trace<3>(testTrace(), "too late");
  const Lines lines = received();
  EXPECT_EQ(lines.back(), end);
  EXPECT_THAT(lines, Not(testing::Contains(HasSubstr("too late"))));
}

TEST_F(TraceRequestTest, followerGetsEachRecordOnce) {
  EXPECT_THAT(traced(R"(,"follow":true)"), testing::Contains(HasSubstr("fills the ring")));
  EXPECT_TRUE(session_->answering());
  EXPECT_THAT(received(), IsEmpty());
  trace<3>(testTrace(), "one");
  trace<3>(TraceHandle::named("IgmpPacket"), "of another");
  trace<3>(testTrace(), "two");
  EXPECT_THAT(received(), ElementsAre(HasSubstr("\"one\""), HasSubstr("\"two\"")));
  EXPECT_THAT(received(), IsEmpty());
  EXPECT_FALSE(session_->ended());
}

TEST_F(TraceRequestTest, followingRecordsNothingItself) {
  answerTo(R"({"op":"traceLevel","level":9})");
  answerTo(R"({"op":"trace","follow":true})");
  const Mox::U64 recorded = Mox::brevlog().recorded();
  for (int round = 0; round < 10; ++round) EXPECT_THAT(received(), IsEmpty());
  EXPECT_EQ(Mox::brevlog().recorded(), recorded);
}

TEST_F(TraceRequestTest, slowReaderCostsOnePartAndGetsTheNumberOfLostLines) {
  send("{\"op\":\"trace\",\"follow\":true}\n");
  const std::string part(session_->out());
  const size_t sent = linesOf(part).size();
  EXPECT_LT(part.size(), Answer::partBytes + 1024);
  // The ring is overwritten several times, and no line is made of that.
  const Mox::U64 first = Mox::brevlog().overwritten();
  for (int round = 0; round < 3; ++round) fillRing();
  EXPECT_EQ(session_->out(), part);
  session_->taken(part.size());
  const Lines rest = received();
  const Mox::U64 lost = Mox::brevlog().overwritten() - first - sent;
  EXPECT_EQ(rest.front(), "{\"lost\":" + std::to_string(lost) + "}");
  EXPECT_EQ(rest.size() - 1, Mox::brevlog().recorded() - Mox::brevlog().overwritten());
  EXPECT_EQ(lostLines(rest), 1);
}

TEST_F(TraceRequestTest, lostLinesAreReportedOnceThoughTheRestTakesSeveralParts) {
  send("{\"op\":\"trace\"}\n");
  const Mox::U64 first = Mox::brevlog().overwritten();
  const Mox::U64 there = Mox::brevlog().recorded() - first;
  const std::string part(session_->out());
  session_->taken(part.size());
  const Mox::U64 sent = linesOf(part).size();
  ASSERT_GT(there, 6 * sent) << "the rest is of few parts";
  for (Mox::U64 line = 0; line < 2 * sent; ++line) trace<3>(testTrace(), "overwrites a record");
  const Mox::U64 lost = Mox::brevlog().overwritten() - first - sent;
  const Lines rest = received();
  EXPECT_EQ(rest.front(), "{\"lost\":" + std::to_string(lost) + "}");
  EXPECT_EQ(lostLines(rest), 1);
  EXPECT_EQ(rest.size() - 2, there - sent - lost);
}

TEST_F(TraceRequestTest, lossesOfADumpAddUpToTheRecordsThatWereNotSent) {
  send("{\"op\":\"trace\"}\n");
  const Mox::U64 there = Mox::brevlog().recorded() - Mox::brevlog().overwritten();
  Mox::U64 sent = 0;
  Mox::U64 lost = 0;
  for (int overrun = 0; overrun < 2; ++overrun) {
    const std::string part(session_->out());
    session_->taken(part.size());
    const Lines lines = linesOf(part);
    sent += lines.size();
    if (lostLines(lines) != 0) {
      --sent;
      lost += lostIn(lines.front());
    }
    for (Mox::U64 line = 0; line < 2 * sent; ++line) trace<3>(testTrace(), "overwrites a record");
  }
  for (int round = 0; round < 3; ++round) fillRing();
  EXPECT_GT(lost, 0u);
  EXPECT_THAT(received(),
              ElementsAre("{\"lost\":" + std::to_string(there - sent - lost) + "}", end));
}

TEST_F(TraceRequestTest, dumpThatIsOverrunEndsAtTheRequestsNewestRecord) {
  send("{\"op\":\"trace\"}\n");
  const Mox::U64 there = Mox::brevlog().recorded() - Mox::brevlog().overwritten();
  const std::string part(session_->out());
  const Mox::U64 sent = linesOf(part).size();
  session_->taken(part.size());
  for (int round = 0; round < 3; ++round) fillRing();
  EXPECT_THAT(received(), ElementsAre("{\"lost\":" + std::to_string(there - sent) + "}", end));
}

TEST_F(TraceRequestTest, clientThatEndsItsOutputGetsTheWholeRing) {
  const Mox::U64 there = Mox::brevlog().recorded() - Mox::brevlog().overwritten();
  send("{\"op\":\"trace\"}\n");
  session_->inEnd();
  EXPECT_THAT(received(), SizeIs(there + 1));
  EXPECT_TRUE(session_->ended());
}

TEST_F(TraceRequestTest, clientThatEndsItsOutputFollowsNoLongerAndIsAnswered) {
  send("{\"op\":\"trace\",\"follow\":true}\n{\"op\":\"traceLevel\",\"level\":2}\n");
  received();
  EXPECT_TRUE(session_->answering());
  session_->inEnd();
  EXPECT_THAT(received(), ElementsAre(ok));
  EXPECT_TRUE(session_->ended());
}

TEST_F(TraceRequestTest, followerWhoseNextLineIsTooLongIsEnded) {
  traced(R"(,"follow":true)");
  trace<3>(testTrace(), "recorded before");
  session_->out();
  send(std::string(session_->room(), 'x'));
  EXPECT_THAT(received(), ElementsAre(HasSubstr("recorded before"),
                                      HasSubstr("a line of more than 65536 bytes is no request")));
  EXPECT_TRUE(session_->ended());
}

}  // namespace
}  // namespace Agent
