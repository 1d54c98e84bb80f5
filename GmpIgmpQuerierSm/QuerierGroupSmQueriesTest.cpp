// Specific queries of other routers: timers are lowered, never raised.
#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

// The queries come from a higher address, so that the election leaves the querier as it is.
class QuerierGroupSmQueriesTest : public GroupBench {
 protected:
  void receiveV3(U8 code, U8 qrv, std::vector<IpAddr> sources = {}, bool sFlag = false) {
    receiveV3Query(
        higher_,
        {.group = group_, .code = code, .sFlag = sFlag, .qrv = qrv, .sources = std::move(sources)});
  }
  // Everything that the query may touch, or not.
  void watchAll(const Ptr<Sm>& sm) {
    watch(sm, "sm");
    watch(sm->groupStatus(), "status");
    for (const auto& [addr, source] : sm->source()) watch(source, addr.stringValue());
  }
};

TEST_F(QuerierGroupSmQueriesTest, aVersion3GroupQueryLowersTheGroupTimer) {
  watchAll(exclude({{s1_, 200.0}}, 200.0));
  receiveV3(10, 2);
  EXPECT_EQ(groupTimer(), 2.0);
  EXPECT_THAT(takeJournal(),
              ElementsAre("sm.membershipTimerExpiry 1002", "status.expiryTime 1002"));
}

TEST_F(QuerierGroupSmQueriesTest, aTimerAtOrBelowTheLimitStays) {
  for (const Seconds left : {2.0, 1.0}) {
    const Ptr<Sm> sm = exclude({}, left);
    watchAll(sm);
    takeJournal();
    receiveV3(10, 2);
    EXPECT_TRUE(takeJournal().empty());
    EXPECT_EQ(groupTimer(), left);
    EXPECT_EQ(tracedBegin("Setting membershipTimerId"), 0U) << "not even to the same time";
  }
}

TEST_F(QuerierGroupSmQueriesTest, theMaximumResponseIsDecodedFirst) {
  exclude({}, 200.0);
  receiveV3(0x8a, 3);  // mantissa 10, exponent 0: 208 tenths of a second
  EXPECT_NEAR(groupTimer(), 62.4, 1e-9);
}

TEST_F(QuerierGroupSmQueriesTest, aRobustnessOfZeroLowersToZero) {
  exclude({{s1_, 200.0}}, 200.0);
  receiveV3(10, 0, {s1_});
  EXPECT_EQ(timerOf(s1_), 0.0);
  receiveV3(10, 0);
  EXPECT_EQ(groupTimer(), 0.0);
  runFor(0.0);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmQueriesTest, anOldGroupQueryLowersToTheConfiguredLastMemberQueryTime) {
  config_->lastMemberQueryCountIs(3);
  config_->lastMemberQueryIntervalIs(1.5);
  watchAll(exclude({{s1_, 200.0}}, 260.0));
  receiveV2Query(higher_, group_, 100);
  EXPECT_EQ(groupTimer(), 4.5);
  EXPECT_THAT(takeJournal(),
              ElementsAre("sm.membershipTimerExpiry 1004.5", "status.expiryTime 1004.5"));
  receiveV2Query(higher_, group_, 0);  // a version 1 query
  EXPECT_TRUE(takeJournal().empty());
}

// The code decides before the length: such a query is one of version 1, whatever else it holds.
TEST_F(QuerierGroupSmQueriesTest, aLongGroupQueryOfCodeZeroIsOneOfVersion1) {
  config_->lastMemberQueryCountIs(3);
  exclude({{s1_, 200.0}}, 260.0);
  receiveV3(0, 7, {s1_}, true);
  EXPECT_EQ(status_->v1QueriesReceived(), 1U);
  EXPECT_EQ(status_->v3QueriesReceived(), 0U);
  EXPECT_EQ(groupTimer(), 3.0) << "the last member query time, although the S flag is set";
  EXPECT_EQ(timerOf(s1_), 200.0);
}

TEST_F(QuerierGroupSmQueriesTest, aDisabledGroupTimerCountsAsAboveEveryLimit) {
  include({{s1_, 200.0}});
  receiveV3(10, 2);
  EXPECT_EQ(groupTimer(), 2.0);
  runFor(2.0);
  EXPECT_TRUE(sourceExists(s1_));
  EXPECT_EQ(filterMode(), filterModeInclude);
}

TEST_F(QuerierGroupSmQueriesTest, aSourceQueryLowersTheTimersOfItsSourcesOnly) {
  const Ptr<Sm> sm = exclude({{s1_, 200.0}, {s2_, 200.0}, {s3_, 1.0}});
  receiveV3(10, 2, {s1_, s3_});
  EXPECT_EQ(timerOf(s1_), 2.0);
  EXPECT_EQ(timerOf(s2_), 200.0);
  EXPECT_EQ(timerOf(s3_), 1.0);
  EXPECT_EQ(groupTimer(), 100.0);
  EXPECT_TRUE(sm->rexmitSource().empty());
  EXPECT_EQ(rexmitTimer(), never);
  EXPECT_EQ(filterMode(), filterModeExclude);
}

TEST_F(QuerierGroupSmQueriesTest, aSourceTimerAtTheLimitStays) {
  exclude({{s1_, 2.0}});
  watchAll(groupSm(group_));
  receiveV3(10, 2, {s1_});
  EXPECT_TRUE(takeJournal().empty());
  EXPECT_EQ(tracedBegin("QuerierGroupSourceSm( 239.1.1.1, 10.7.0.1 )::doSetTimer"), 0U);
}

TEST_F(QuerierGroupSmQueriesTest, aSourceQueryStartsADisabledTimer) {
  exclude({{s1_, never}});
  receiveV3(10, 2, {s1_});
  EXPECT_EQ(timerOf(s1_), 2.0);
  EXPECT_EQ(sourceSm(s1_)->sourceTimerState(), timerRunning);
  EXPECT_FALSE(sourceStatus(s1_)->expired());
}

TEST_F(QuerierGroupSmQueriesTest, aSourceQueryCreatesNoSource) {
  watchAll(exclude({{s1_, 200.0}}));
  receiveV3(10, 2, {s2_});
  EXPECT_TRUE(takeJournal().empty());
  EXPECT_FALSE(sourceExists(s2_));
  EXPECT_EQ(timerOf(s1_), 200.0);
}

TEST_F(QuerierGroupSmQueriesTest, aSuppressingQueryChangesNothing) {
  watchAll(exclude({{s1_, 200.0}}));
  receiveV3(10, 2, {}, true);
  receiveV3(10, 2, {s1_}, true);
  EXPECT_TRUE(takeJournal().empty());
  EXPECT_EQ(groupTimer(), 100.0);
  EXPECT_EQ(timerOf(s1_), 200.0);
}

TEST_F(QuerierGroupSmQueriesTest, theHandlersThemselvesIgnoreTheFlagAndTheInitialization) {
  const Ptr<Sm> sm = exclude({{s1_, 200.0}});
  sm->initializedIs(false);
  IgmpQuery query{.validPacket = true,
                  .version = igmpVersion3,
                  .maxResponseCode = 10,
                  .groupAddress = group_,
                  .s = true,
                  .qrv = 2,
                  .qqi = 125,
                  .source = {s1_}};
  sm->handleRxGSSQuery(query);
  EXPECT_EQ(timerOf(s1_), 2.0);
  query.source.clear();
  sm->handleRxGSQuery(query);
  EXPECT_EQ(groupTimer(), 2.0);
  sm->initializedIs(true);
}

TEST_F(QuerierGroupSmQueriesTest, nothingIsEverSentInAnswer) {
  exclude({{s1_, 200.0}});
  receiveV3(10, 2);
  receiveV3(10, 2, {s1_});
  receiveV2Query(higher_, group_);
  runFor(5.0);
  EXPECT_TRUE(takeSent().empty());
}

TEST_F(QuerierGroupSmQueriesTest, eachHandlerTracesItsEntryWithTheQuery) {
  exclude({{s1_, 200.0}});
  receiveV3(10, 2);
  receiveV3(10, 2, {s1_, s2_});
  receiveV2Query(higher_, group_);
  const std::string query =
      "Value('Gmp::Igmp::IgmpQuery', ** {'validPacket': True, 'version': 'igmpVersion3', "
      "'maxResponseCode': 10, 'groupAddress': '239.1.1.1', 's': False, 'qrv': 2, 'qqi': 125, "
      "'source': ";
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxGSQuery( " + query + "{}}) )"), 1U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxGSSQuery( " + query +
                   "{'10.7.0.1': True, '10.7.0.2': True}}) )"),
            1U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRxGSQuery()"), 1U);
}

// A router that starts late ends such a group together with the others.
TEST_F(QuerierGroupSmQueriesTest, aGroupThatAGroupQueryCreatesEndsAtItsLimit) {
  receiveV3(10, 2);
  ASSERT_TRUE(groupExists());
  EXPECT_EQ(filterMode(), filterModeInclude);
  EXPECT_EQ(groupTimer(), 2.0);
  runFor(2.0);
  EXPECT_FALSE(groupExists());
}

TEST_F(QuerierGroupSmQueriesTest, bothRoutersForgetTheGroupAtTheSameTime) {
  receiveV2Report(group_);
  receiveV3Query(lower_);  // the election is lost
  ASSERT_EQ(status_->state(), QuerierStatus::querierStateNonQuerier);
  receiveV3Query(lower_, {.group = group_, .code = 10});
  runFor(1.99);
  EXPECT_TRUE(groupExists());
  runFor(0.01);
  EXPECT_FALSE(groupExists());
  EXPECT_TRUE(takeSent().empty());
}

}  // namespace

}  // namespace Gmp::Igmp::testing
