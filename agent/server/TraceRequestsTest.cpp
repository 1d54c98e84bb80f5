// The requests about traces, and the ring that they read.
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

constexpr const char* endLine = "{\"end\":true}";

auto lostLines(const Lines& lines) {
  return std::ranges::count_if(lines, [](auto& line) { return line.starts_with("{\"lost"); });
}

Mox::U64 lostIn(const std::string& line) {
  return std::stoull(line.substr(std::string("{\"lost\":").size()));
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
                  endLine));
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
  EXPECT_EQ(lines.back(), endLine);
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

TEST_F(TraceRequestTest, placesOfFollowersAreLimitedAndFreeAgainOnceTheyEnd) {
  std::vector<std::unique_ptr<RequestSession>> followers;
  const auto follow = [&] {
    followers.push_back(std::make_unique<RequestSession>(services_, Rights::read));
    followers.back()->in("{\"op\":\"trace\",\"follow\":true}\n");
    followers.back()->out();
    return followers.back()->answering();
  };
  for (int place = 0; place < 28; ++place) EXPECT_TRUE(follow());
  EXPECT_FALSE(follow());
  EXPECT_THAT(followers.back()->out(), HasSubstr("28 clients follow the traces already"));
  EXPECT_THAT(answerTo(R"({"op":"traceHandles"})"), ElementsAre(HasSubstr("handles")));
  followers.erase(followers.begin());
  EXPECT_TRUE(follow());
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
              ElementsAre("{\"lost\":" + std::to_string(there - sent - lost) + "}", endLine));
}

TEST_F(TraceRequestTest, dumpThatIsOverrunEndsAtTheRequestsNewestRecord) {
  send("{\"op\":\"trace\"}\n");
  const Mox::U64 there = Mox::brevlog().recorded() - Mox::brevlog().overwritten();
  const std::string part(session_->out());
  const Mox::U64 sent = linesOf(part).size();
  session_->taken(part.size());
  for (int round = 0; round < 3; ++round) fillRing();
  EXPECT_THAT(received(), ElementsAre("{\"lost\":" + std::to_string(there - sent) + "}", endLine));
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
