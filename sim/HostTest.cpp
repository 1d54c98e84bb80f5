// What the hosts of a world do, since the invariants trust them.
#include "Host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Sim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Frame queryFrame(const std::vector<U8>& packet) {
  const std::optional<Query> query = queryOf(packet);
  return {.kind = query->isGeneral ? Frame::generalQuery : Frame::specificQuery,
          .version = static_cast<U8>(query->version),
          .asks = askedBy(*query),
          .bytes = frameOf(0, packet)};
}

class SimHostTest : public testing::Test {
 protected:
  static Host host(unsigned version) { return Host({.node = 5, .version = version, .seed = 3}); }

  // The texts of all frames that it sends until that time.
  static std::vector<std::string> sent(Host& host, Seconds until) {
    std::vector<std::string> all;
    for (Seconds due = host.nextDue(); due <= until; due = host.nextDue()) {
      while (const auto frame = host.act(due)) all.push_back(textOf(*frame).substr(9));
    }
    return all;
  }
};

TEST_F(SimHostTest, version3RepeatsAChangeOfItsFilterMode) {
  Host host3 = host(3);
  host3.wantIs(10, 1, wholeGroup & ~1U);
  EXPECT_THAT(sent(host3, 20),
              ElementsAre("v3 report TO_EX for g1 s1 g1 s2 g1 rest without g1 s0",
                          "v3 report TO_EX for g1 s1 g1 s2 g1 rest without g1 s0"));
}

TEST_F(SimHostTest, version3ReportsChangedSourcesOnly) {
  Host host3 = host(3);
  host3.wantIs(10, 0, 1);
  sent(host3, 20);
  host3.wantIs(20, 0, 2);
  EXPECT_THAT(sent(host3, 20), ElementsAre("v3 report ALLOW BLOCK for g0 s1 without g0 s0"));
}

TEST_F(SimHostTest, version3AnswersWithinTheResponseTime) {
  Host host3 = host(3);
  host3.wantIs(10, 0, 1);
  sent(host3, 20);
  host3.receive(100, queryFrame(Ilvo::buildV3Query({.code = 20})));
  EXPECT_EQ(host3.answering(), allChannels);
  EXPECT_LE(host3.nextDue(), 102);
  EXPECT_THAT(sent(host3, 102), ElementsAre("v3 report IS_IN for g0 s0"));
}

TEST_F(SimHostTest, version3AnswersForTheSourcesThatItWants) {
  Host host3 = host(3);
  host3.wantIs(10, 0, wholeGroup & ~1U);
  sent(host3, 20);
  host3.receive(
      100, queryFrame(Ilvo::buildV3Query(
               {.group = groupAddr(0), .code = 10, .sources = {sourceAddr(0), sourceAddr(1)}})));
  EXPECT_THAT(sent(host3, 102), ElementsAre("v3 report IS_IN for g0 s1"));
}

TEST_F(SimHostTest, version3SpeaksVersion2AfterAnOlderGeneralQuery) {
  Host host3 = host(3);
  host3.wantIs(10, 0, 1);
  sent(host3, 20);
  host3.receive(100, queryFrame(Ilvo::buildV2Query()));
  EXPECT_EQ(host3.wants(100), wholeGroup);
  EXPECT_THAT(sent(host3, 110), ElementsAre("v2 report for g0 s0 g0 s1 g0 s2 g0 rest"));
  // Robustness times the query interval, and the response time of the older query.
  EXPECT_EQ(host3.mode(359), 2U);
  EXPECT_EQ(host3.mode(361), 3U);
}

TEST_F(SimHostTest, version2IsSuppressedByAReport) {
  Host host2 = host(2);
  host2.wantIs(10, 0, wholeGroup);
  sent(host2, 30);
  host2.receive(100, queryFrame(Ilvo::buildV2Query()));
  host2.receive(100, {.kind = Frame::report, .version = 1, .asserts = wholeGroup});
  EXPECT_EQ(host2.takeUnanswered(), wholeGroup);
  EXPECT_THAT(sent(host2, 120), IsEmpty());
}

TEST_F(SimHostTest, version2LeavesWhenItReportedLast) {
  Host host2 = host(2);
  host2.wantIs(10, 0, wholeGroup);
  sent(host2, 30);
  host2.wantIs(40, 0, 0);
  EXPECT_THAT(sent(host2, 40), ElementsAre("v2 leave without g0 s0 g0 s1 g0 s2 g0 rest"));
}

TEST_F(SimHostTest, version1KnowsNeitherLeavesNorQueriesForAGroup) {
  Host host1 = host(1);
  host1.wantIs(10, 0, wholeGroup);
  sent(host1, 40);
  host1.receive(100, queryFrame(Ilvo::buildV2Query(groupAddr(0))));
  EXPECT_THAT(sent(host1, 120), IsEmpty());
  host1.wantIs(120, 0, 0);
  EXPECT_THAT(sent(host1, 140), IsEmpty());
}

}  // namespace
}  // namespace Sim
