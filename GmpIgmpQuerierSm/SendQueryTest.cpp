// Queries without sources: general ones with their schedule, and group-specific ones.
#include "TestBench.h"

#include <Ilvo/Checksum.h>
#include "SendQuery.h"

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Status = QuerierStatus;

namespace {

const std::string notQuerier = "Don't send query because we are not the querier";

class SendQuery : public TestBench {
 protected:
  // The general query that is sent for that response time.
  SentQuery sentFor(double maxResponseSeconds) {
    takeSent();
    sendQuery(querier_.get(), maxResponseSeconds, IpAddr());
    EXPECT_EQ(sent_.size(), 1u);
    return sent_.at(0);
  }
  // A group of that compatibility mode with pending group-specific queries.
  Ptr<QuerierGroupSm> pendingGroup(IgmpVersion mode, U32 count = 2) {
    Ptr<QuerierGroupSm> sm = getOrCreateGroupSm(querier_, group_);
    sm->groupStatus()->compatibilityModeIs(mode);
    sm->rexmitGroupQueryIs(count);
    takeSent();
    return sm;
  }
};

TEST_F(SendQuery, AVersion3GeneralQueryIsTwelveBytesWithItsFields) {
  start();
  config_->robustnessIs(3);
  config_->queryIntervalIs(60.0);
  const SentQuery query = sentFor(10.0);
  EXPECT_THAT(query.bytes,
              ElementsAre(0x11, 100, ::testing::_, ::testing::_, 0, 0, 0, 0, 3, 60, 0, 0));
  EXPECT_EQ(Ilvo::checksum(query.bytes), 0);
  EXPECT_EQ(query.dst, IpAddr());
}

TEST_F(SendQuery, AVersion2GeneralQueryIsEightBytes) {
  config_->querierVersionIs(igmpVersion2);
  start();
  const SentQuery query = sentFor(10.0);
  EXPECT_THAT(query.bytes, ElementsAre(0x11, 100, ::testing::_, ::testing::_, 0, 0, 0, 0));
  EXPECT_EQ(Ilvo::checksum(query.bytes), 0);
}

TEST_F(SendQuery, Version2CodesAreTenthsCutOff) {
  config_->querierVersionIs(igmpVersion2);
  start();
  EXPECT_EQ(sentFor(25.5).code(), 255u);
  EXPECT_EQ(sentFor(25.49).code(), 254u);
  EXPECT_EQ(sentFor(25.51).code(), 255u);
  EXPECT_EQ(sentFor(1000.0).code(), 255u);
  EXPECT_EQ(sentFor(10.0).code(), 100u);
  EXPECT_EQ(sentFor(0.09).code(), 0u);
  EXPECT_EQ(sentFor(0.0).code(), 0u);
}

TEST_F(SendQuery, Version1QueriesAlwaysCarryCodeZero) {
  config_->querierVersionIs(igmpVersion1);
  start();
  for (const double seconds : {0.0, 10.0, 1000.0}) EXPECT_EQ(sentFor(seconds).code(), 0u);
  EXPECT_EQ(sentFor(10.0).bytes.size(), 8u);
}

TEST_F(SendQuery, Version3CodesAreRoundedDown) {
  start();
  EXPECT_EQ(sentFor(12.7).code(), 127u);
  EXPECT_EQ(sentFor(12.8).code(), 0x80u);
  EXPECT_EQ(sentFor(20.8).code(), 0x8au);
  EXPECT_EQ(sentFor(20.7).code(), 0x89u);
  EXPECT_EQ(sentFor(1e9).code(), 0xffu);
}

TEST_F(SendQuery, TheQueryIntervalIsCodedToo) {
  config_->queryIntervalIs(400.0);
  start();
  EXPECT_EQ(sentFor(10.0).qqic(), 0x99u);  // (9 + 16) << 4
}

TEST_F(SendQuery, RobustnessIsClampedTo7) {
  config_->robustnessIs(7);
  start();
  EXPECT_EQ(sentFor(10.0).qrv(), 7u);
  config_->robustnessIs(9);
  EXPECT_EQ(sentFor(10.0).qrv(), 7u);
  config_->robustnessIs(2);
  EXPECT_EQ(sentFor(10.0).qrv(), 2u);
}

TEST_F(SendQuery, RobustnessIsTheConfiguredOneAndTheIntervalTheEffectiveOne) {
  start();
  status_->robustnessIs(5);
  status_->queryIntervalIs(33.0);
  const SentQuery query = sentFor(10.0);
  EXPECT_EQ(query.qrv(), 2u);
  EXPECT_EQ(query.qqic(), 33u);
}

TEST_F(SendQuery, GeneralQueriesNeverHaveTheSFlag) {
  start();
  receiveV2Report(group_);
  EXPECT_FALSE(sentFor(10.0).sFlag());
}

TEST_F(SendQuery, IsPublishedCountedAndTracedInItsOrder) {
  startQuiet();
  watch(status_, "status");
  watch(Ptr<const QuerierSm>(querier_), "sm");
  querier_->dstGroupIs(group_);
  takeJournal();
  sendQuery(querier_.get(), 10.0, IpAddr());
  EXPECT_THAT(journal_, ElementsAre("sm.dstGroup 0.0.0.0", "sm.sendPkt", "sm.writableCount 1",
                                    "status.v3QueriesSent 1"));
  EXPECT_THAT(
      traceTexts(),
      ElementsAre("Querier vlan10 sending query from 10.0.0.5 withIgmpV3QueryHdr( type 0x11 "
                  "code 100 group 0.0.0.0 s 0 qrv 2 qqic 125 sources 0 )",
                  "Query packet created for vlan vlan10"));
}

TEST_F(SendQuery, OldQueriesAreTracedWithTheirHeader) {
  config_->querierVersionIs(igmpVersion2);
  startQuiet();
  sendQuery(querier_.get(), 10.0, IpAddr());
  EXPECT_EQ(traced("Querier vlan10 sending query from 10.0.0.5 withIgmpV12Hdr( type 0x11 code 100 "
                   "group 0.0.0.0 )"),
            1u);
}

TEST_F(SendQuery, IsCountedByItsVersion) {
  start();
  sendQuery(querier_.get(), 10.0, IpAddr());
  config_->querierVersionIs(igmpVersion2);
  sendQuery(querier_.get(), 10.0, IpAddr());
  sendQuery(querier_.get(), 10.0, IpAddr());
  config_->querierVersionIs(igmpVersion1);
  for (int i = 0; i < 3; ++i) sendQuery(querier_.get(), 10.0, IpAddr());
  EXPECT_EQ(status_->v3QueriesSent(), 1u);
  EXPECT_EQ(status_->v2QueriesSent(), 2u);
  EXPECT_EQ(status_->v1QueriesSent(), 3u);
  EXPECT_EQ(status_->v3GSQueriesSent(), 0u);
}

TEST_F(SendQuery, AnUnknownVersionIsSentAsEightBytesAndCountsNothing) {
  start();
  status_->querierVersionIs(igmpVersionUnknown);
  const SentQuery query = sentFor(10.0);
  EXPECT_EQ(query.bytes.size(), 8u);
  EXPECT_EQ(query.code(), 0u);
  EXPECT_EQ(status_->totalGeneralQueriesSent(), 0u);
}

TEST_F(SendQuery, OutsideTheQuerierRoleNothingIsSent) {
  for (const auto state : {Status::querierStateInitial, Status::querierStateNonQuerier}) {
    startQuiet();
    querier_->dstGroupIs(group_);
    status_->stateIs(state);
    watch(status_, "status");
    watch(Ptr<const QuerierSm>(querier_), "sm");
    sendQuery(querier_.get(), 10.0, IpAddr());
    EXPECT_THAT(takeJournal(), IsEmpty());
    EXPECT_THAT(traceTexts(), ElementsAre(notQuerier));
    release();
  }
}

TEST_F(SendQuery, WithoutAPacketOnlyTheDestinationIsWritten) {
  startQuiet();
  querier_->dstGroupIs(group_);
  watch(status_, "status");
  watch(Ptr<const QuerierSm>(querier_), "sm");
  Ilvo::pktManager().failuresIs(1);
  sendQuery(querier_.get(), 10.0, IpAddr());
  EXPECT_THAT(journal_, ElementsAre("sm.dstGroup 0.0.0.0"));
  EXPECT_THAT(traceTexts(), ElementsAre("Packet allocation failed for querier vlan10"));
}

TEST_F(SendQuery, EachQueryIsAPacketOfItsOwn) {
  start();
  sendQuery(querier_.get(), 10.0, IpAddr());
  const Ptr<Ilvo::Pkt> first = querier_->sendPkt();
  sendQuery(querier_.get(), 10.0, IpAddr());
  EXPECT_NE(querier_->sendPkt(), first);
  EXPECT_EQ(querier_->writableCount(), 2u);
}

TEST_F(SendQuery, AGroupQueryTakesTheVersionOfItsGroup) {
  for (const auto mode : {igmpVersion1, igmpVersion2, igmpVersion3}) {
    startQuiet();
    pendingGroup(mode);
    sendQuery(querier_.get(), 1.0, group_);
    ASSERT_EQ(sent_.size(), 1u);
    EXPECT_EQ(sent_[0].dst, group_);
    EXPECT_EQ(sent_[0].group(), group_);
    EXPECT_EQ(sent_[0].isV3(), mode == igmpVersion3);
    EXPECT_EQ(sent_[0].code(), mode == igmpVersion1 ? 0u : 10u);
    EXPECT_EQ(Ilvo::checksum(sent_[0].bytes), 0);
  }
  EXPECT_EQ(status_->v1QueriesSent(), 1u);
  EXPECT_EQ(status_->v2QueriesSent(), 1u);
}

TEST_F(SendQuery, TheSFlagIsSetAboveTheLastMemberQueryTime) {
  startQuiet();
  const Ptr<QuerierGroupSm> sm = pendingGroup(igmpVersion3);
  const auto sFlagWith = [&](Seconds left) {
    takeSent();
    sm->doSetTimer(QuerierGroupSm::membershipTimerId, left);
    sendQuery(querier_.get(), 1.0, group_);
    return sent_.at(0).sFlag();
  };
  EXPECT_FALSE(sFlagWith(1.999));
  EXPECT_FALSE(sFlagWith(2.0));
  EXPECT_TRUE(sFlagWith(2.001));
  EXPECT_TRUE(sFlagWith(never));
}

TEST_F(SendQuery, AGroupSpecificQueryCountsTwiceForAVersion3Group) {
  startQuiet();
  const Ptr<QuerierGroupSm> sm = pendingGroup(igmpVersion3);
  sendGroupSpecificQuery(querier_.get(), group_);
  EXPECT_EQ(sent_.size(), 1u);
  EXPECT_EQ(sm->rexmitGroupQuery(), 1u);
  EXPECT_EQ(status_->v3QueriesSent(), 1u);
  EXPECT_EQ(status_->v3GSQueriesSent(), 1u);
  EXPECT_EQ(traced("void Gmp::Igmp::sendGroupSpecificQuery(Gmp::Igmp::QuerierSm*, Ilvo::IpAddr)"),
            1u);
}

TEST_F(SendQuery, AGroupSpecificQueryCountsOnceForAnOlderGroup) {
  startQuiet();
  pendingGroup(igmpVersion2);
  sendGroupSpecificQuery(querier_.get(), group_);
  EXPECT_EQ(status_->v2QueriesSent(), 1u);
  EXPECT_EQ(status_->v3GSQueriesSent(), 0u);
}

TEST_F(SendQuery, AGroupWithNothingPendingIsNotQueried) {
  startQuiet();
  const Ptr<QuerierGroupSm> sm = pendingGroup(igmpVersion3, 0);
  sendGroupSpecificQuery(querier_.get(), group_);
  EXPECT_THAT(sent_, IsEmpty());
  EXPECT_EQ(sm->rexmitGroupQuery(), 0u);
  EXPECT_EQ(status_->v3GSQueriesSent(), 0u);
}

TEST_F(SendQuery, TheCountMovesAlsoWhenTheQueryCannotBeSent) {
  startQuiet();
  const Ptr<QuerierGroupSm> sm = pendingGroup(igmpVersion3);
  status_->stateIs(Status::querierStateNonQuerier);
  sendGroupSpecificQuery(querier_.get(), group_);
  EXPECT_THAT(sent_, IsEmpty());
  EXPECT_EQ(sm->rexmitGroupQuery(), 1u);
  EXPECT_EQ(status_->v3QueriesSent(), 0u);
  EXPECT_EQ(status_->v3GSQueriesSent(), 1u);
}

TEST_F(SendQuery, TheTimerSendsAGeneralQueryAndArmsAnew) {
  startQuiet();
  querier_->handleQueryIntervalTimer();
  ASSERT_EQ(sent_.size(), 1u);
  EXPECT_EQ(sent_[0].code(), 100u);
  const auto texts = traceTexts();
  ASSERT_GE(texts.size(), 2u);
  EXPECT_EQ(texts[0], "QuerierSm( vlan10 )::handleQueryIntervalTimer()");
  EXPECT_EQ(texts[1], "void Gmp::Igmp::sendGeneralQuery(Gmp::Igmp::QuerierSm*)");
  EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 31.25);
}

TEST_F(SendQuery, TheFirstQueryAfterSilenceHasHalfTheResponseTimeOnce) {
  startQuiet();
  status_->queryResponseIntervalIs(6.0);
  querier_->initialQuerySentIs(false);
  sendGeneralQuery(querier_.get());
  sendGeneralQuery(querier_.get());
  ASSERT_EQ(sent_.size(), 2u);
  EXPECT_EQ(sent_[0].code(), 30u);
  EXPECT_EQ(sent_[1].code(), 100u);  // the configured one
  EXPECT_TRUE(querier_->initialQuerySent());
}

TEST_F(SendQuery, StartupQueriesFollowTheirIntervalThenTheRegularOne) {
  config_->startupQueryIntervalIs(30.0);
  start();
  runFor(300.0);
  ASSERT_EQ(sent_.size(), 4u);
  EXPECT_DOUBLE_EQ(sent_[1].at - sent_[0].at, 30.0);
  EXPECT_DOUBLE_EQ(sent_[2].at - sent_[1].at, 125.0);
  EXPECT_DOUBLE_EQ(sent_[3].at - sent_[2].at, 125.0);
}

TEST_F(SendQuery, WithoutStartupQueriesTheRegularIntervalFollowsAtOnce) {
  config_->startupQueryCountIs(0);
  startQuiet();
  querier_->handleQueryIntervalTimer();
  EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 125.0);
}

TEST_F(SendQuery, GroupSpecificQueriesOfVersion3CountAsStartupQueries) {
  startQuiet();
  pendingGroup(igmpVersion3);
  sendGroupSpecificQuery(querier_.get(), group_);
  querier_->handleQueryIntervalTimer();
  EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 125.0);
}

TEST_F(SendQuery, QueriesOfAllVersionsCountAsStartupQueries) {
  config_->startupQueryCountIs(4);
  startQuiet();
  status_->v1QueriesSentIs(1);
  status_->v2QueriesSentIs(1);
  querier_->handleQueryIntervalTimer();
  EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 31.25);
  querier_->handleQueryIntervalTimer();
  EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 125.0);
}

TEST_F(SendQuery, AnEffectiveStartupIntervalOfZeroFallsBackToTheQueryInterval) {
  startQuiet();
  status_->startupQueryIntervalIs(0.0);
  querier_->handleQueryIntervalTimer();
  EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 125.0);
}

TEST_F(SendQuery, AQueryThatCannotBeSentDoesNotCountForTheStartupPhase) {
  startQuiet();
  for (int i = 0; i < 3; ++i) {
    Ilvo::pktManager().failuresIs(1);
    querier_->handleQueryIntervalTimer();
    EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 31.25);
  }
  EXPECT_THAT(sent_, IsEmpty());
  EXPECT_EQ(status_->v3QueriesSent(), 0u);
}

TEST_F(SendQuery, TheIntervalInEffectIsTheStatusValue) {
  config_->startupQueryCountIs(0);
  startQuiet();
  status_->queryIntervalIs(44.0);
  querier_->handleQueryIntervalTimer();
  EXPECT_EQ(status_->generalQueryExpiryTime(), now() + 44.0);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
