#include <Replay/CaptureReplay.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ilvo/IpPrefix.h>
#include <IlvoTestSupport/IgmpPacketBuilder.h>
#include <Mox/ActivityClock.h>
#include <Text/WallClock.h>

#include <AgentTestSupport/EventRecorder.h>
#include <AgentTestSupport/TestAddresses.h>
#include "CaptureTestSupport.h"

namespace Agent {
namespace {

using Ilvo::buildV2Leave;
using Ilvo::buildV2Query;
using Ilvo::buildV2Report;
using Ilvo::IpAddr;
using testing::ElementsAre;
using testing::IsEmpty;

const Ilvo::IpOptions fromHost{.src = host};

// With seed 0 the first general query leaves that long after the start.
constexpr Mox::Seconds firstQuery = 1.7082803610628973;

class CaptureReplayTest : public testing::Test {
 protected:
  ~CaptureReplayTest() override {
    Mox::realTimeIs();
    wallClockDifferenceIs({});
  }

  void capture(Mox::Seconds time, const Bytes& packet) { file_.frame(time, ethernet(packet)); }

  void replay() {
    const CaptureOnDisk disk(file_.bytes());
    CaptureFile file(disk.path());
    events_ = std::make_unique<EventRecorder>();
    replay_ = std::make_unique<CaptureReplay>(options_, config_, boundary_, *events_);
    replay_->run(file);
  }
  std::vector<std::string> replayed() {
    replay();
    return events_->taken();
  }

  // Lines as the recorder writes them.
  static std::string at(Mox::Seconds time, const std::string& text) {
    return Mox::textOf(time) + " " + text;
  }

  ReplayOptions options_{.address = IpAddr(10, 0, 0, 5)};
  Mox::Ptr<Gmp::Igmp::QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("capture");
  Mox::Ptr<Ilvo::IntfBoundaryStatus> boundary_;
  PcapFile file_{DLT_EN10MB};
  std::unique_ptr<EventRecorder> events_;
  std::unique_ptr<CaptureReplay> replay_;
};

TEST_F(CaptureReplayTest, aJoinAndALeaveGiveTheQueriesAndEventsOfAQuerier) {
  capture(1000.0, buildV2Report(group, fromHost));
  capture(1010.0, buildV2Leave(group, fromHost));
  capture(1020.0, buildV2Report(IpAddr(239, 2, 2, 2), fromHost));
  EXPECT_THAT(
      replayed(),
      ElementsAre(
          "1000 role querier (elected 10.0.0.5)", "1000 joined 239.1.1.1 by 10.0.0.11 (version 2)",
          at(1000.0 + firstQuery, "query sent for all groups, version 2, answers within 10s"),
          "1010 query sent for 239.1.1.1, version 2, answers within 1s",
          "1011 query sent for 239.1.1.1, version 2, answers within 1s", "1012 left 239.1.1.1",
          "1020 joined 239.2.2.2 by 10.0.0.11 (version 2)"));
}

TEST_F(CaptureReplayTest, theTimersOfAPacketsTimeFireBeforeIt) {
  capture(1000.0, buildV2Report(group, fromHost));
  capture(1010.0, buildV2Leave(group, fromHost));
  capture(1012.0, buildV2Report(group, fromHost));
  const std::vector<std::string> lines = replayed();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2], "1012 left 239.1.1.1");
  EXPECT_EQ(lines.back(), "1012 joined 239.1.1.1 by 10.0.0.11 (version 2)");
}

TEST_F(CaptureReplayTest, endsWithTheLastFrame) {
  capture(1000.0, buildV2Report(group, fromHost));
  capture(1001.0, buildV2Leave(group, fromHost));
  EXPECT_EQ(replayed().back(), "1001 query sent for 239.1.1.1, version 2, answers within 1s");
  EXPECT_EQ(Mox::now(), 1001.0);
}

TEST_F(CaptureReplayTest, goesOnAfterTheLastFrameWhenAskedTo) {
  capture(1000.0, buildV2Report(group, fromHost));
  options_.until = 260.0;
  config_->sendQueryIs(false);
  EXPECT_THAT(replayed(),
              ElementsAre("1000 joined 239.1.1.1 by 10.0.0.11 (version 2)", "1260 left 239.1.1.1"));
}

TEST_F(CaptureReplayTest, followsAQuerierOfALowerAddress) {
  capture(1000.0, buildV2Query(IpAddr(), 100, {.src = IpAddr(10, 0, 0, 1)}));
  options_.until = 30.0;
  EXPECT_THAT(replayed(), ElementsAre("1000 role querier (elected 10.0.0.5)",
                                      "1000 role nonQuerier (elected 10.0.0.1)"));
}

TEST_F(CaptureReplayTest, theIntakeRefusesAQuerierOutsideOfTheSubnetsThatAreGiven) {
  const auto intake = Mox::makePtr<IntakeConfig>("capture");
  intake->multicastOnlyIs(false);
  options_.intake = intake;
  options_.process = Mox::makePtr<IntakeProcessConfig>();
  capture(1000.0, buildV2Query(IpAddr(), 100, {.src = IpAddr(9, 0, 0, 1)}));
  replay();
  EXPECT_EQ(replay_->summary().refused, 0u);
  options_.subnets = PrefixList("10.0.0.0/24,192.0.2.0/24");
  replay();
  EXPECT_EQ(replay_->summary().refused, 1u);
  EXPECT_THAT(events_->taken(), testing::Contains(testing::HasSubstr("9.0.0.1")));
}

// Under a name of its own: messages of other tests count towards the rate limit.
TEST_F(CaptureReplayTest, reportsQueriersOfAnotherVersion) {
  config_ = Gmp::Igmp::querierConfigFactory("mismatch");
  capture(1000.0, Ilvo::buildV3Query({}, {.src = IpAddr(10, 0, 0, 1)}));
  replay();
  const auto& events = events_->events();
  EXPECT_TRUE(std::any_of(events.begin(), events.end(), [](const Event& event) {
    return event.kind == Event::versionMismatch && event.version == 3;
  }));
}

TEST_F(CaptureReplayTest, learnsNothingInsideTheBoundary) {
  boundary_ = Mox::makePtr<Ilvo::IntfBoundaryStatus>();
  boundary_->boundaryIs(*Ilvo::IpGenPrefix::parse("239.1.0.0/16"), true);
  capture(1000.0, buildV2Report(group, fromHost));
  EXPECT_THAT(replayed(), ElementsAre("1000 role querier (elected 10.0.0.5)"));
}

TEST_F(CaptureReplayTest, theSameSeedGivesTheSameEvents) {
  capture(1000.0, buildV2Report(group, fromHost));
  options_.until = 1000.0;
  const std::vector<std::string> first = replayed();
  EXPECT_EQ(replayed(), first);
  options_.seed = 1;
  EXPECT_NE(replayed(), first);
}

TEST_F(CaptureReplayTest, aSecondReplayRepeatsTheMessagesOfTheFirst) {
  capture(1000.0, buildV2Query(IpAddr(), 0, {.src = IpAddr(10, 0, 0, 9)}));
  config_->querierVersionIs(Gmp::Igmp::igmpVersion3);
  const std::vector<std::string> first = replayed();
  EXPECT_THAT(first, testing::Contains(testing::HasSubstr("version 1")));
  EXPECT_EQ(replayed(), first);
}

TEST_F(CaptureReplayTest, timeThatRunsBackwardsStandsStill) {
  capture(1000.0, buildV2Report(group, fromHost));
  capture(900.0, buildV2Report(IpAddr(239, 2, 2, 2), fromHost));
  capture(1001.0, buildV2Report(IpAddr(239, 3, 3, 3), fromHost));
  EXPECT_THAT(replayed(), ElementsAre("1000 role querier (elected 10.0.0.5)",
                                      "1000 joined 239.1.1.1 by 10.0.0.11 (version 2)",
                                      "1000 joined 239.2.2.2 by 10.0.0.11 (version 2)",
                                      "1001 joined 239.3.3.3 by 10.0.0.11 (version 2)"));
  EXPECT_EQ(replay_->summary().backwards, 1u);
}

TEST_F(CaptureReplayTest, framesBehindAShortenedGapKeepTheirDistances) {
  config_->sendQueryIs(false);
  options_.maxGap = 100.0;
  capture(1000.0, buildV2Report(group, fromHost));
  capture(5000.0, buildV2Report(IpAddr(239, 2, 2, 2), fromHost));
  capture(5001.0, buildV2Report(IpAddr(239, 3, 3, 3), fromHost));
  EXPECT_THAT(replayed(), ElementsAre("1000 joined 239.1.1.1 by 10.0.0.11 (version 2)",
                                      "1100 joined 239.2.2.2 by 10.0.0.11 (version 2)",
                                      "1101 joined 239.3.3.3 by 10.0.0.11 (version 2)"));
  EXPECT_EQ(replay_->summary().shortenedGaps, 1u);
}

TEST_F(CaptureReplayTest, aFrameOutOfOrderIsNotTheBaseOfTheNextGap) {
  config_->sendQueryIs(false);
  options_.maxGap = 150.0;
  capture(1000.0, buildV2Report(group, fromHost));
  capture(900.0, buildV2Report(IpAddr(239, 2, 2, 2), fromHost));
  capture(1100.0, buildV2Report(IpAddr(239, 3, 3, 3), fromHost));
  EXPECT_EQ(replayed().back(), "1100 joined 239.3.3.3 by 10.0.0.11 (version 2)");
  EXPECT_EQ(replay_->summary().shortenedGaps, 0u);
}

// Keeps the moment of each event on the wall clock, as a sink that writes JSON does.
class Moments final : public EventSink {
 public:
  void event(const Event& event) override {
    utc_.push_back(std::string(UtcText(wallTime(event.time)).text()));
  }
  const std::vector<std::string>& utc() const { return utc_; }

 private:
  std::vector<std::string> utc_;
};

TEST_F(CaptureReplayTest, theWallClockIsThatOfTheCaptureAlsoAfterAShortenedGap) {
  config_->sendQueryIs(false);
  options_.maxGap = 300.0;
  capture(1000.0, buildV2Report(group, fromHost));
  capture(5000.0, buildV2Report(IpAddr(239, 2, 2, 2), fromHost));
  const CaptureOnDisk disk(file_.bytes());
  CaptureFile file(disk.path());
  Moments moments;
  CaptureReplay(options_, config_, nullptr, moments).run(file);
  EXPECT_THAT(moments.utc(),
              ElementsAre("1970-01-01T00:16:40.000000Z", "1970-01-01T00:21:00.000000Z",
                          "1970-01-01T01:23:20.000000Z"));
  EXPECT_EQ(Mox::now(), 1300.0);
}

TEST_F(CaptureReplayTest, countsFramesHandedInAndFramesSkipped) {
  capture(1000.0, buildV2Report(group, fromHost));
  file_.frame(1001.0, ethernet(buildV2Report(group, fromHost), {0x86dd}));
  file_.frame(1002.0, Bytes(5, 0), 60);
  replay();
  const ReplaySummary& summary = replay_->summary();
  EXPECT_EQ(summary.frames, 3u);
  EXPECT_EQ(summary.igmp, 1u);
  EXPECT_EQ(summary.skippedInAll(), 2u);
  EXPECT_EQ(summary.skipped.at(SkipReason::notIpv4), 1u);
  EXPECT_EQ(summary.skipped.at(SkipReason::cutShort), 1u);
}

TEST_F(CaptureReplayTest, showsTheStateAtTheEnd) {
  capture(1000.0, buildV2Report(group, fromHost));
  replay();
  const std::vector<InterfaceView> views = replay_->interfaces();
  ASSERT_EQ(views.size(), 1u);
  EXPECT_EQ(views[0].name, "capture");
  EXPECT_EQ(views[0].address, IpAddr(10, 0, 0, 5));
  EXPECT_TRUE(views[0].status->group(group));
  EXPECT_EQ(replay_->start(), 1000.0);
}

TEST_F(CaptureReplayTest, aCaptureWithoutFramesEndsWhereItBegins) {
  replay();
  EXPECT_EQ(replay_->start(), 0.0);
  EXPECT_EQ(Mox::now(), 0.0) << "not the machine's time, which differs each time";
}

TEST_F(CaptureReplayTest, aCaptureWithoutFramesHasNoQuerier) {
  EXPECT_THAT(replayed(), IsEmpty());
  EXPECT_THAT(replay_->interfaces(), IsEmpty());
}

TEST_F(CaptureReplayTest, replaysTheFramesAheadOfTheDamage) {
  capture(1000.0, buildV2Report(group, fromHost));
  capture(1001.0, buildV2Report(group, fromHost));
  file_.cutEnd(1);
  replay();
  EXPECT_EQ(replay_->summary().frames, 1u);
  EXPECT_NE(replay_->summary().damage, "");
}

ReplaySummary eventfulSummary() {
  ReplaySummary summary{.frames = 9, .igmp = 4};
  summary.skipped[SkipReason::notIgmp] = 3;
  summary.skipped[SkipReason::cutShort] = 2;
  summary.backwards = 1;
  summary.shortenedGaps = 2;
  summary.damage = "truncated";
  return summary;
}

TEST(ReplaySummary, hasLinesOnlyForThingsThatHappened) {
  EXPECT_EQ(summaryText({.frames = 2, .igmp = 2}),
            "2 frames read, 2 with IGMP handed in, 0 skipped\n");
  EXPECT_EQ(summaryText(eventfulSummary()),
            "9 frames read, 4 with IGMP handed in, 5 skipped\n"
            "  3 not IGMP\n"
            "  2 cut short by the capture\n"
            "earlier than a frame before them, time stood still: 1\n"
            "gaps between frames that were shortened (--max-gap): 2\n"
            "the file is damaged behind the last of them: truncated\n");
}

TEST(ReplaySummary, isOneJsonLineWithEveryCount) {
  wallClockDifferenceIs(0.0);
  EXPECT_EQ(summaryJson(eventfulSummary(), 12.5),
            R"({"time":12.5,"utc":"1970-01-01T00:00:12.500000Z","event":"summary","frames":9,)"
            R"("igmp":4,"refused":0,"changed":0,"skipped":{"notIpv4":0,)"
            R"("notIgmp":3,"tooShort":0,"fragment":0,"cutShort":2},"backwards":1,)"
            R"("shortenedGaps":2,"damage":"truncated"})");
  EXPECT_NE(summaryJson({}, 0.0).find("\"damage\":null"), std::string::npos);
  wallClockDifferenceIs({});
}

}  // namespace
}  // namespace Agent
