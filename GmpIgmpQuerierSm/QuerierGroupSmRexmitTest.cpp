// Specific queries and their retransmission: what is asked, how often, with which flag, and when
// not.
#include <cstdio>

#include "GroupBench.h"

#include <MoxBase/Fatal.h>

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

const std::string groupQuery =
    "void Gmp::Igmp::sendGroupSpecificQuery(Gmp::Igmp::QuerierSm*, Ilvo::IpAddr)";

class QuerierGroupSmRexmitTest : public GroupBench {
 protected:
  // Queries go out for these sources at the next turn, each to be asked about `count` times.
  void setPending(const Ptr<Sm>& sm, const std::vector<IpAddr>& sources, U32 count = 2) {
    for (const IpAddr addr : sources) {
      sm->rexmitSourceIs(addr, true);
      sm->source(addr)->rexmitsIs(count);
    }
    sm->doSetTimer(Sm::rexmitTimerId, 0.0);
  }
};

TEST_F(QuerierGroupSmRexmitTest, aLeaveIsQueriedTwiceASecondApart) {
  const Ptr<Sm> sm = exclude({});
  receiveLeave(group_);
  runFor(0.0);
  EXPECT_EQ(sm->rexmitGroupQuery(), 1U);
  EXPECT_EQ(rexmitTimer(), 1.0);
  runFor(1.0);
  EXPECT_EQ(sm->rexmitGroupQuery(), 0U);
  EXPECT_EQ(rexmitTimer(), never);
  EXPECT_EQ(traced("Disabling timer, since there are no pending retransmissions"), 1U);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].at, begin_);
  EXPECT_EQ(sent[1].at, begin_ + 1.0);
  EXPECT_EQ(sent[0].dst, group_);
  EXPECT_EQ(sent[0].group(), group_);
  EXPECT_EQ(sent[0].code(), 10);
  EXPECT_TRUE(sent[0].sources().empty());
  EXPECT_FALSE(sent[0].sFlag());
  EXPECT_EQ(status_->v3QueriesSent(), 2U);
  EXPECT_EQ(status_->v3GSQueriesSent(), 2U);
  EXPECT_EQ(status_->v3GSSQueriesSent(), 0U);
}

TEST_F(QuerierGroupSmRexmitTest, eachRunTracesItsStepsAndTime) {
  exclude({});
  receiveLeave(group_);
  runFor(1.0);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRexmitTimer() @ 1000"), 1U);
  EXPECT_EQ(traced("QuerierGroupSm( 239.1.1.1 )::handleRexmitTimer() @ 1001"), 1U);
  EXPECT_EQ(traced("Rexmit Timer for 239.1.1.1 on vlan10 expired"), 2U);
}

TEST_F(QuerierGroupSmRexmitTest, aGroupConfirmedMeanwhileIsAskedAboutWithTheFlagSet) {
  exclude({});
  receiveLeave(group_);
  runFor(0.0);
  receiveRecord(modeIsExclude, group_);
  runFor(1.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_FALSE(sent[0].sFlag());
  EXPECT_TRUE(sent[1].sFlag());
}

TEST_F(QuerierGroupSmRexmitTest, withVersion2HostsGroupsAreAskedAboutInVersion2) {
  exclude({}, 100.0, igmpVersion2);
  receiveLeave(group_);
  runFor(0.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_FALSE(sent[0].isV3());
  EXPECT_EQ(sent[0].code(), 10);
  EXPECT_EQ(status_->v2QueriesSent(), 1U);
  EXPECT_EQ(status_->v3GSQueriesSent(), 0U);
}

TEST_F(QuerierGroupSmRexmitTest, withOlderHostsSourcesAreNotAskedAbout) {
  for (const IgmpVersion version : {igmpVersionUnknown, igmpVersion1, igmpVersion2}) {
    const Ptr<Sm> sm = exclude({{s1_, 200.0}}, 100.0, version);
    sm->rexmitGroupQueryIs(1);
    setPending(sm, {s1_});
    runFor(0.0);
    const std::vector<SentQuery> sent = takeSent();
    ASSERT_EQ(sent.size(), 1U) << stringValue(version);
    EXPECT_FALSE(sent[0].isV3());
    EXPECT_EQ(sourceSm(s1_)->rexmits(), 2U);
    EXPECT_THAT(rexmitSources(), ElementsAre(s1_));
    EXPECT_EQ(rexmitTimer(), 1.0) << "sources are still pending";
    EXPECT_EQ(tracedBegin("Decrementing"), 0U);
    EXPECT_EQ(traced("Don't send query because we are not the querier"), 0U);
    querier_->groupSmDel(group_);
  }
}

TEST_F(QuerierGroupSmRexmitTest, droppedSourcesAreQueriedUntilTheyEnd) {
  const Ptr<Sm> sm = include({{s1_, 200.0}, {s2_, 200.0}});
  receiveRecord(blockOldSources, group_, {s1_});
  runFor(1.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 2U);
  for (const SentQuery& query : sent) {
    EXPECT_THAT(query.sources(), ElementsAre(s1_));
    EXPECT_FALSE(query.sFlag());
    EXPECT_EQ(query.dst, group_);
    EXPECT_EQ(query.code(), 10);
    EXPECT_EQ(query.qrv(), 2U);
    EXPECT_EQ(query.qqic(), 125);
  }
  EXPECT_EQ(traced("Decrementing retransmissions for source 10.7.0.1 on vlan10"), 2U);
  EXPECT_EQ(traced("Final retransmission for source 10.7.0.1 on vlan10 removing from list"), 1U);
  EXPECT_EQ(rexmitTimer(), never);
  EXPECT_EQ(status_->v3GSSQueriesSent(), 2U);
  EXPECT_EQ(status_->v3QueriesSent(), 0U);
  runFor(1.0);
  EXPECT_FALSE(sourceExists(s1_));
  EXPECT_TRUE(sourceExists(s2_));
}

TEST_F(QuerierGroupSmRexmitTest, aSourceToBeAskedAboutOnceMoreIsSentAndLeavesTheList) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}});
  setPending(sm, {s1_}, 1);
  runFor(0.0);
  EXPECT_EQ(takeSent().size(), 1U);
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 0U);
  EXPECT_TRUE(rexmitSources().empty());
  EXPECT_EQ(traced("Final retransmission for source 10.7.0.1 on vlan10 removing from list"), 1U);
}

TEST_F(QuerierGroupSmRexmitTest, confirmedSourcesGoOutInASecondQueryWithTheFlagSet) {
  const Ptr<Sm> sm = exclude({{s1_, 2.0}, {s2_, 2.5}, {s3_, 1.0}});
  setPending(sm, {s1_, s2_, s3_});
  runFor(0.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_FALSE(sent[0].sFlag());
  EXPECT_THAT(sent[0].sources(), UnorderedElementsAre(s1_, s3_));
  EXPECT_TRUE(sent[1].sFlag());
  EXPECT_THAT(sent[1].sources(), ElementsAre(s2_));
  EXPECT_EQ(status_->v3GSSQueriesSent(), 2U);
  EXPECT_EQ(status_->v3GSQueriesSent(), 0U);
}

TEST_F(QuerierGroupSmRexmitTest, pendingGroupQueriesLeaveOutConfirmedSourcesButCountThem) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}, {s2_, 200.0}});
  sm->rexmitGroupQueryIs(2);
  setPending(sm, {s1_, s2_});
  runFor(0.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_TRUE(sent[0].sources().empty());
  EXPECT_THAT(sent[1].sources(), ElementsAre(s1_));
  EXPECT_EQ(sourceSm(s2_)->rexmits(), 1U);
  EXPECT_THAT(rexmitSources(), ElementsAre(s1_, s2_));
}

TEST_F(QuerierGroupSmRexmitTest, confirmedSourcesFollowTheLastGroupQueryInTheSameRun) {
  const Ptr<Sm> sm = exclude({{s2_, 200.0}});
  sm->rexmitGroupQueryIs(1);
  setPending(sm, {s2_});
  runFor(0.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_TRUE(sent[1].sFlag());
  EXPECT_THAT(sent[1].sources(), ElementsAre(s2_));
}

// A disabled timer counts as one that never runs out.
TEST_F(QuerierGroupSmRexmitTest, aSourceExcludedWhileAskedAboutIsAskedAboutWithTheFlagSet) {
  const Ptr<Sm> sm = exclude({{s1_, 0.5}});
  setPending(sm, {s1_});
  runFor(1.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_FALSE(sent[0].sFlag());
  EXPECT_TRUE(sent[1].sFlag());
  EXPECT_THAT(sent[1].sources(), ElementsAre(s1_));
}

TEST_F(QuerierGroupSmRexmitTest, theDeclaredSourceSetsStayEmpty) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}, {s2_, 200.0}});
  setPending(sm, {s1_, s2_});
  runFor(0.0);
  EXPECT_TRUE(sm->rexmitClrSource().empty());
  EXPECT_TRUE(sm->rexmitSetSource().empty());
}

TEST_F(QuerierGroupSmRexmitTest, aLongListIsSplitByTheMtu) {
  querier_->mtuIs(48);  // room for two sources
  std::vector<Source> sources;
  std::vector<IpAddr> all;
  for (U32 i = 0; i < 5; ++i) {
    sources.push_back({IpAddr(0x0a090000 + i), 1.0});
    all.push_back(sources.back().addr);
  }
  setPending(exclude(sources), all);
  runFor(0.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_EQ(sent[0].numSources(), 2U);
  EXPECT_EQ(sent[1].numSources(), 2U);
  EXPECT_EQ(sent[2].numSources(), 1U);
  std::vector<IpAddr> asked;
  for (const SentQuery& query : sent) {
    EXPECT_EQ(query.bytes.size(), 12 + 4 * query.numSources());
    for (const IpAddr addr : query.sources()) asked.push_back(addr);
  }
  EXPECT_THAT(asked, ::testing::UnorderedElementsAreArray(all));
  EXPECT_EQ(status_->v3GSSQueriesSent(), 3U);
}

TEST_F(QuerierGroupSmRexmitTest, withoutAnMtuOnePacketHoldsThemAll) {
  querier_->mtuIs(0);
  const Ptr<Sm> sm = exclude({});
  std::vector<IpAddr> all;
  for (U32 i = 0; i < 700; ++i) {
    all.emplace_back(0x0a090000 + i);
    getOrCreateSourceSm(sm, all.back())->doSetTimer(1.0);
  }
  setPending(sm, all);
  runFor(0.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].numSources(), 700U);
}

TEST_F(QuerierGroupSmRexmitTest, anIntervalOfZeroStopsAfterOneRun) {
  config_->lastMemberQueryIntervalIs(0.0);
  const Ptr<Sm> sm = exclude({});
  sm->rexmitGroupQueryIs(2);
  sm->doSetTimer(Sm::rexmitTimerId, 0.0);
  runFor(5.0);
  EXPECT_EQ(takeSent().size(), 1U);
  EXPECT_EQ(sm->rexmitGroupQuery(), 1U);
  EXPECT_EQ(rexmitTimer(), never);
  EXPECT_EQ(traced("Disabling timer, since LMQI is 0"), 1U);
  EXPECT_EQ(traced("Disabling timer, since there are no pending retransmissions"), 0U);
}

TEST_F(QuerierGroupSmRexmitTest, whileTheLogIsCloggedARunIsPutOffByLessThanTwoSeconds) {
  const Ptr<Sm> sm = exclude({{s1_, 50.0}}, 200.0);
  sm->rexmitGroupQueryIs(2);
  setPending(sm, {s1_});
  clog();
  srand48(5);
  const double r = drand48();
  srand48(5);
  runFor(0.0);
  EXPECT_EQ(traced("Reschedule rexmit timer as attr log will overflow."), 1U);
  EXPECT_EQ(traced("Rexmit Timer for 239.1.1.1 on vlan10 expired"), 0U);
  EXPECT_EQ(sm->rexmitTimerExpiry(), now() + (r + r));
  EXPECT_LT(rexmitTimer(), 2.0);
  EXPECT_EQ(sm->rexmitGroupQuery(), 2U);
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 2U);
  EXPECT_TRUE(takeSent().empty());
  unclog();
  runFor(2.0);
  EXPECT_GE(takeSent().size(), 1U);
}

TEST_F(QuerierGroupSmRexmitTest, withoutAPacketTheRunCountsAsSent) {
  const Ptr<Sm> sm = exclude({{s1_, 1.5}});
  sm->rexmitGroupQueryIs(2);
  setPending(sm, {s1_});
  Ilvo::pktManager().failuresIs(2);
  runFor(0.0);
  EXPECT_TRUE(takeSent().empty());
  EXPECT_EQ(traced("Packet allocation failed for querier vlan10"), 2U);
  EXPECT_EQ(sm->rexmitGroupQuery(), 1U);
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 1U);
  EXPECT_EQ(status_->v3QueriesSent(), 0U);
  EXPECT_EQ(status_->v3GSQueriesSent(), 1U);
  EXPECT_EQ(status_->v3GSSQueriesSent(), 0U);
  EXPECT_EQ(rexmitTimer(), 1.0);
  runFor(1.0);
  EXPECT_EQ(takeSent().size(), 2U);
}

TEST_F(QuerierGroupSmRexmitTest, aQuerierWithoutAddressMustNotAskAboutSources) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}});
  setPending(sm, {s1_});
  querier_->ipAddrIs(IpAddr());
  EXPECT_DEATH(sm->handleRexmitTimer(), "q->ipAddr\\(\\) != Ilvo::IpAddr::ipAddrZero\\(\\)");
}

// The retransmissions that are pending at the failure, written to standard error.
const Sm* failing = nullptr;
void printPending() {
  std::string pending;
  for (const auto& [addr, sourceSm] : failing->source()) {
    pending += addr.stringValue() + " pending " + std::to_string(sourceSm->rexmits());
  }
  std::fprintf(stderr, "%s of %zu\n", pending.c_str(), failing->rexmitSource().size());
}

TEST_F(QuerierGroupSmRexmitTest, withoutAnAddressNoCountMoves) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}});
  setPending(sm, {s1_}, 1);
  querier_->ipAddrIs(IpAddr());
  failing = sm.get();
  Mox::fatalHookIs(printPending);
  EXPECT_DEATH(sm->handleRexmitTimer(), "10.7.0.1 pending 1 of 1");
  Mox::fatalHookIs(nullptr);
}

TEST_F(QuerierGroupSmRexmitTest, aRunWithNothingPendingSendsNothing) {
  const Ptr<Sm> sm = exclude({{s1_, 200.0}});
  sm->doSetTimer(Sm::rexmitTimerId, 0.0);
  runFor(0.0);
  EXPECT_TRUE(takeSent().empty());
  EXPECT_EQ(status_->v3GSQueriesSent(), 0U);
  EXPECT_EQ(tracedBegin(groupQuery), 0U);
}

TEST_F(QuerierGroupSmRexmitTest, eachPendingGroupQueryIsTraced) {
  exclude({});
  receiveLeave(group_);
  runFor(10.0);
  EXPECT_EQ(traced(groupQuery), 2U);
}

TEST_F(QuerierGroupSmRexmitTest, aSourceCreatedAgainHasNothingPending) {
  const Ptr<Sm> sm = exclude({{s1_, 50.0}, {s2_, 1.0}});
  setPending(sm, {s1_, s2_});
  sm->sourceDel(s1_);
  getOrCreateSourceSm(sm, s1_)->doSetTimer(50.0);
  runFor(0.0);
  const std::vector<SentQuery> sent = takeSent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_THAT(sent[0].sources(), ElementsAre(s2_));
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 0U);
  EXPECT_THAT(rexmitSources(), ElementsAre(s2_));
}

TEST_F(QuerierGroupSmRexmitTest, theGroupMayBeEndedWhileTheQueryIsTransmitted) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}});
  sm->rexmitGroupQueryIs(2);
  setPending(sm, {s1_});
  Once<QuerierSm> once(querier_, "writableCount", [this] { querier_->groupSmDel(group_); });
  runFor(0.0);
  EXPECT_TRUE(once.acted());
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(takeSent().size(), 1U);
  EXPECT_EQ(wheel_->armed(), 0U);
}

TEST_F(QuerierGroupSmRexmitTest, theQuerierMayBeReleasedWhileTheQueryIsTransmitted) {
  const Ptr<Sm> sm = exclude({{s1_, 1.0}});
  setPending(sm, {s1_});
  auto once = std::make_unique<Once<QuerierSm>>(querier_, "writableCount", [] {});
  once = std::make_unique<Once<QuerierSm>>(querier_, "writableCount", [&] {
    once->notifierIs(nullptr);
    release();
  });
  runFor(0.0);
  EXPECT_TRUE(once->acted());
  EXPECT_TRUE(sm->ended());
  EXPECT_EQ(wheel_->armed(), 0U);
}

// A transmission may bring in a report at once, which settles what the query asked.
TEST_F(QuerierGroupSmRexmitTest, aReportWhileTheQueryIsSentLeavesNothingPending) {
  const auto sm = exclude({});
  sm->rexmitGroupQueryIs(1);
  onSent_ = [&] { receiveV1Report(group_); };
  sm->handleRexmitTimer();
  EXPECT_EQ(sent_.size(), 1U);
  EXPECT_EQ(sm->rexmitGroupQuery(), 0U);
  EXPECT_EQ(sm->rexmitTimerState(), timerDisabled);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
