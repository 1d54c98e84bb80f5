// Retransmissions of a router that is not the querier, or has just lost the election: it sends the
// queries that are pending, and then hands over.
#include "GroupBench.h"

namespace Gmp::Igmp::testing {

namespace {

using Sm = QuerierGroupSm;
using ::testing::ElementsAre;

class QuerierGroupSmHandOverTest : public GroupBench {
 protected:
  void loseElection() { receiveV3Query(lower_, {.code = 100}); }
};

TEST_F(QuerierGroupSmHandOverTest, aNonQuerierCountsGroupQueriesButKeepsSources) {
  status_->stateIs(QuerierStatus::querierStateNonQuerier);
  const Ptr<Sm> sm = exclude({{s1_, 200.0}});
  sm->rexmitGroupQueryIs(2);
  sm->rexmitSourceIs(s1_, true);
  sourceSm(s1_)->rexmitsIs(2);
  sm->doSetTimer(Sm::rexmitTimerId, 0.0);
  runFor(3.0);
  EXPECT_TRUE(takeSent().empty());
  EXPECT_EQ(sm->rexmitGroupQuery(), 0U);
  EXPECT_EQ(sourceSm(s1_)->rexmits(), 2U);
  EXPECT_THAT(rexmitSources(), ElementsAre(s1_));
  EXPECT_EQ(rexmitTimer(), 1.0) << "again and again, until the source is removed by other means";
  EXPECT_EQ(tracedBegin("Decrementing"), 0U);
  EXPECT_EQ(traced("Don't send query because we are not the querier"), 6U)
      << "four runs, and the two group queries among them";
  EXPECT_EQ(status_->v3QueriesSent(), 0U);
  EXPECT_EQ(status_->v3GSQueriesSent(), 2U);
  sm->sourceDel(s1_);
  sm->rexmitSourceDel(s1_);
  runFor(1.0);
  EXPECT_EQ(rexmitTimer(), never);
}

TEST_F(QuerierGroupSmHandOverTest, aLostElectionIsCompletedWhenThePendingQueriesAreSent) {
  exclude({});
  receiveLeave(group_);
  runFor(0.0);
  takeSent();
  loseElection();
  EXPECT_TRUE(querier_->transitionToNonQuerier());
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(group_));
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateQuerier);
  runFor(0.99);
  EXPECT_TRUE(querier_->transitionToNonQuerier());
  runFor(0.01);
  EXPECT_EQ(takeSent().size(), 1U);
  EXPECT_FALSE(querier_->transitionToNonQuerier());
  EXPECT_TRUE(querier_->pendingRexmit().empty());
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateNonQuerier);
}

TEST_F(QuerierGroupSmHandOverTest, aHandOverWaitsForEveryGroup) {
  const IpAddr other(239, 1, 1, 2);
  receiveV2Report(group_);
  receiveV2Report(other);
  receiveLeave(group_);
  runFor(0.5);
  receiveLeave(other);
  loseElection();
  EXPECT_EQ(querier_->pendingRexmit().size(), 2U);
  runFor(0.5);
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(other));
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateQuerier);
  runFor(0.5);
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateNonQuerier);
}

TEST_F(QuerierGroupSmHandOverTest, aVersion1ReportCompletesAHandOver) {
  exclude({});
  receiveLeave(group_);
  loseElection();
  receiveV1Report(group_);
  EXPECT_FALSE(querier_->transitionToNonQuerier());
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateNonQuerier);
}

struct PendingLog final : QuerierSm::NotifieeConst {
  using NotifieeConst::NotifieeConst;
  void onPendingRexmit(IpAddr group) override { changed.push_back(group); }
  std::vector<IpAddr> changed;
};

TEST_F(QuerierGroupSmHandOverTest, aFurtherQueryOfTheWinnerChangesNoPendingGroup) {
  exclude({});
  receiveLeave(group_);
  loseElection();
  const PendingLog log(querier_);
  loseElection();
  EXPECT_THAT(log.changed, ElementsAre());
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(group_));
  EXPECT_TRUE(querier_->transitionToNonQuerier());
}

TEST_F(QuerierGroupSmHandOverTest, aFurtherQueryOfTheWinnerKeepsGroupsThatWereLeftSince) {
  const IpAddr other(239, 1, 1, 2);
  receiveV2Report(group_);
  receiveV2Report(other);
  receiveLeave(group_);
  loseElection();
  runFor(0.5);
  receiveLeave(other);
  querier_->groupSmDel(group_);
  loseElection();
  EXPECT_THAT(querier_->pendingRexmit().keys(), ElementsAre(other));
  runFor(1.0);
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateNonQuerier);
}

TEST_F(QuerierGroupSmHandOverTest, aHandOverIsJudgedAnewWhenAPendingGroupEnded) {
  const Ptr<Sm> sm = exclude({});
  receiveLeave(group_);
  loseElection();
  querier_->groupSmDel(group_);
  EXPECT_TRUE(querier_->transitionToNonQuerier());
  loseElection();
  EXPECT_FALSE(querier_->transitionToNonQuerier());
  EXPECT_TRUE(querier_->pendingRexmit().empty());
  EXPECT_EQ(status_->state(), QuerierStatus::querierStateNonQuerier);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
