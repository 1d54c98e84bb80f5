// The election guard: specific queries, the times of other queriers, new queriers.
#include <Ilvo/IgmpCode.h>

#include "IntakeTestSupport.h"

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Ilvo::V3QueryFields;
using Mox::Seconds;
using Mox::U8;
using testing::ElementsAre;
using testing::IsEmpty;

class IntakeQueriesTest : public IntakeTest {
 protected:
  void SetUp() override {
    start();
    received(Ilvo::buildV2Report(group_, {.src = host_}));
  }
  std::string specificQuery(IpAddr router, IpAddr group = group_) {
    return received(Ilvo::buildV3Query({.group = group, .code = 10}, {.src = router}));
  }
  Seconds remaining() { return querierStatus_->group(group_)->expiryTime() - Mox::now(); }
};

TEST_F(IntakeQueriesTest, noSpecificQueryIsTakenWhileThisRouterIsElected) {
  const Seconds before = remaining();
  EXPECT_EQ(specificQuery(lower_), "refused: specificQuery");
  EXPECT_EQ(specificQuery(higher_), "refused: specificQuery");
  EXPECT_EQ(specificQuery(IpAddr()), "refused: specificQuery");
  EXPECT_EQ(received(Ilvo::buildV2Query(group_, 10, {.src = lower_})), "refused: specificQuery");
  EXPECT_EQ(remaining(), before);
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), own_);
  EXPECT_EQ(counted(IntakeRule::specificQuery), 4u);
}

TEST_F(IntakeQueriesTest, specificQueryOfTheElectedQuerierIsTaken) {
  elect(lower_);
  EXPECT_EQ(specificQuery(lower_), "passes");
  EXPECT_EQ(remaining(), 2.0);
}

TEST_F(IntakeQueriesTest, specificQueryOfAnyOtherRouterIsRefused) {
  elect(lower_);
  for (const IpAddr router : {lowest_, higher_, IpAddr()}) {
    EXPECT_EQ(specificQuery(router), "refused: specificQuery") << router.stringValue();
  }
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), lower_);
}

TEST_F(IntakeQueriesTest, querierBeforeFinishesItsQueriesWithinTheLastMemberQueryTime) {
  elect(lower_);
  advance(10.0);
  elect(lowest_);
  EXPECT_EQ(specificQuery(lower_), "passes");
  advance(1.9);
  EXPECT_EQ(specificQuery(lower_), "passes");
  EXPECT_EQ(specificQuery(lowest_), "passes");
  advance(0.1);
  EXPECT_EQ(specificQuery(lower_), "refused: specificQuery");
}

TEST_F(IntakeQueriesTest, ownQueriesFromElsewhereAreNotThoseOfTheQuerierBefore) {
  elect(lower_);
  const Bytes query = Ilvo::buildV3Query({.group = group_, .code = 10}, {.src = own_});
  EXPECT_EQ(received(query, ownMac_), "refused: specificQuery");
}

TEST_F(IntakeQueriesTest, noQueryMakesAGroup) {
  elect(lower_);
  const IpAddr unknown(239, 9, 9, 9);
  EXPECT_EQ(specificQuery(lower_, unknown), "refused: specificQuery");
  EXPECT_EQ(received(Ilvo::buildV3Query({.group = unknown, .sources = {source_}}, {.src = lower_})),
            "refused: specificQuery");
  EXPECT_EQ(received(Ilvo::buildV2Query(IpAddr(10, 9, 9, 9), 10,
                                        {.src = lower_, .dst = IpAddr(224, 0, 0, 1)})),
            "refused: specificQuery");
  EXPECT_EQ(groups(), 1u);
}

TEST_F(IntakeQueriesTest, guardCanBeSwitchedOff) {
  config_->guardSpecificQueriesIs(false);
  EXPECT_EQ(specificQuery(higher_), "passes");
}

// The querier would make it, and no limit would hold.
TEST_F(IntakeQueriesTest, withoutTheGuardAnUnknownGroupIsRefusedAllTheSame) {
  config_->guardSpecificQueriesIs(false);
  EXPECT_EQ(specificQuery(higher_, IpAddr(239, 2, 2, 2)), "refused: specificQuery");
  EXPECT_EQ(groups(), 1u);
}

// As while a querier rebuilds its machines.
TEST_F(IntakeQueriesTest, groupThatOnlyTheStatusHasIsKnown) {
  const IpAddr waiting(239, 2, 2, 2);
  querierStatus_->groupIs(waiting)->filterModeIs(Gmp::Igmp::filterModeExclude);
  elect(lower_);
  EXPECT_EQ(specificQuery(lower_, waiting), "passes");
}

struct TimesCase {
  const char* name;
  U8 qrv;
  U8 qqic;
  U8 code;
  bool isChanged;
  Seconds adopted;  // the other querier present interval afterwards
};

class QuerierTimesTest : public IntakeQueriesTest, public testing::WithParamInterface<TimesCase> {};

TEST_P(QuerierTimesTest, otherQuerierPresentIntervalStaysWithinItsBounds) {
  const TimesCase& c = GetParam();
  EXPECT_EQ(
      received(Ilvo::buildV3Query({.code = c.code, .qrv = c.qrv, .qqic = c.qqic}, {.src = lower_})),
      c.isChanged ? "changed: querierTimes" : "passes");
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), lower_);
  EXPECT_EQ(querierStatus_->errorPacketReceived(), 0u);
  EXPECT_EQ(querierStatus_->otherQuerierPresentInterval(), c.adopted);
  EXPECT_EQ(counted(IntakeRule::querierTimes), c.isChanged ? 1u : 0u);
}

// As an interval, 0xac is 896 s and 0xff 31744 s; as a response time, 0xff is 3174.4 s.
INSTANTIATE_TEST_SUITE_P(
    Codes, QuerierTimesTest,
    testing::Values(TimesCase{"defaults", 2, 125, 100, false, 255.0},
                    TimesCase{"everythingAtItsLargest", 7, 255, 255, true, 3590.4},
                    TimesCase{"longInterval", 2, 255, 100, true, 3589.0},
                    TimesCase{"justTooLong", 4, 0xad, 100, true, 3589.0},
                    TimesCase{"justAllowed", 4, 0xac, 100, false, 3589.0},
                    TimesCase{"longResponse", 1, 125, 255, false, 1712.2},
                    TimesCase{"shortest", 1, 1, 1, true, 10.05},
                    TimesCase{"justAllowedShort", 1, 9, 20, false, 10.0},
                    TimesCase{"justTooShort", 1, 9, 19, true, 10.95},
                    TimesCase{"robustnessOfTheConfiguration", 0, 1, 10, true, 10.5}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(IntakeQueriesTest, timesOfSpecificQueriesAreLimitedAsWell) {
  elect(lower_);
  EXPECT_EQ(received(Ilvo::buildV3Query(
                {.group = group_, .code = 10, .qrv = 7, .qqic = 255, .sources = {source_}},
                {.src = lower_})),
            "changed: querierTimes");
  EXPECT_LE(querierStatus_->otherQuerierPresentInterval(), Intake::mostOtherQuerierInterval);
  EXPECT_EQ(querierStatus_->v3QueriesReceived(), 2u);
}

TEST_F(IntakeQueriesTest, oneForgedQuerySilencesForAnHourAtMost) {
  received(Ilvo::buildV3Query({.code = 255, .qrv = 7, .qqic = 255}, {.src = lowest_}));
  EXPECT_EQ(querierStatus_->state(), Gmp::Igmp::QuerierStatus::querierStateNonQuerier);
  advance(Intake::mostOtherQuerierInterval);
  EXPECT_EQ(querierStatus_->state(), Gmp::Igmp::QuerierStatus::querierStateQuerier);
}

TEST_F(IntakeQueriesTest, limitOfTimesCanBeSwitchedOff) {
  config_->limitQuerierTimesIs(false);
  EXPECT_EQ(received(Ilvo::buildV3Query({.code = 255, .qrv = 7, .qqic = 255}, {.src = lower_})),
            "passes");
}

TEST_F(IntakeQueriesTest, querierThatWinsForTheFirstTimeIsReported) {
  received(Ilvo::buildV3Query({}, {.src = higher_}));
  EXPECT_THAT(events(), IsEmpty());
  elect(lower_);
  EXPECT_THAT(events(), ElementsAre("newQuerier 10.0.0.2 mac 77 count 1"));
  elect(lower_);
  EXPECT_EQ(counted(IntakeRule::newQuerier), 1u);
  advance(300.0);  // it falls silent, and comes again
  EXPECT_EQ(querierStatus_->electedQuerierAddr(), own_);
  elect(lower_);
  EXPECT_THAT(events(), IsEmpty());
  elect(lowest_);
  EXPECT_THAT(events(), ElementsAre("newQuerier 10.0.0.1 mac 77 count 2"));
}

TEST_F(IntakeQueriesTest, querierIsReportedAtALaterWinWhenItsFirstOneWasNot) {
  elect(lower_);
  elect(lowest_);
  EXPECT_THAT(events(), ElementsAre("newQuerier 10.0.0.2 mac 77 count 1"));
  advance(300.0);
  elect(lowest_);
  EXPECT_THAT(events(), ElementsAre("newQuerier 10.0.0.1 mac 77 count 3"));
}

TEST_F(IntakeQueriesTest, querierWhoseEventHadToWaitIsReportedWhileItIsElected) {
  elect(lower_);
  elect(lowest_);
  EXPECT_THAT(events(), ElementsAre("newQuerier 10.0.0.2 mac 77 count 1"));
  advance(60.0);
  elect(lowest_);
  EXPECT_THAT(events(), ElementsAre("newQuerier 10.0.0.1 mac 77 count 2"));
  advance(60.0);
  elect(lowest_);
  EXPECT_THAT(events(), IsEmpty());
  EXPECT_EQ(counted(IntakeRule::newQuerier), 2u);
}

TEST_F(IntakeQueriesTest, noElectionIsReportedInVersion1) {
  querierConfig_->querierVersionIs(Gmp::Igmp::igmpVersion1);
  received(Ilvo::buildV1Query({.src = lower_}));
  EXPECT_THAT(events(), IsEmpty());
}

}  // namespace
}  // namespace Agent
