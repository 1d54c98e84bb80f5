// The end of a querier: what it leaves behind, and that it may come at any moment, in particular in
// the middle of one of its own handlers.
#include "NotificationBench.h"

namespace Gmp::Igmp::testing {

using ::testing::IsEmpty;
using Status = QuerierStatus;

namespace {

class QuerierSmRelease : public NotificationBench {
 protected:
  // Lets the querier go at each notification of the action. Says how many there were.
  size_t releaseAtEachNotification(const Deed& prepare, const Deed& action) {
    return interfereAtEach(
        prepare, action, [&] { release(); },
        [&] {
          EXPECT_EQ(wheel_->armed(), 0u);
          EXPECT_EQ(config_->notifieeList().size(), 0u);
        });
  }
};

TEST_F(QuerierSmRelease, WritesNothingSendsNothingAndKeepsTheGroups) {
  start();
  hearV2Report(group_);
  hearRecord(1, group2_, {source_});
  takeSent();
  watch(status_, "status");
  watch(status_->group(group_), "group");
  Recorder<Status> still(status_, "still", journal_);
  Recorder<QuerierGroupStatus> stillGroup(status_->group(group_), "group", journal_);
  journal_.clear();
  traces_.clear();
  release();
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_THAT(traceTexts(), IsEmpty());
  EXPECT_THAT(sent_, IsEmpty());
  EXPECT_NE(status_->group(group_), nullptr);
  EXPECT_EQ(status_->group(group2_)->source().size(), 1u);
  EXPECT_EQ(status_->state(), Status::querierStateQuerier);
}

TEST_F(QuerierSmRelease, LeavesNoTimerAndNoReactorBehind) {
  start();
  hearV2Report(group_);
  hearLeave(group_);
  hearV3Query(lower_);
  release();
  EXPECT_EQ(wheel_->armed(), 0u);
  EXPECT_EQ(config_->notifieeList().size(), 0u);
  EXPECT_EQ(config_->refs(), 1u);
  EXPECT_EQ(status_->refs(), 1u);
  config_->queryIntervalIs(60.0);
  EXPECT_EQ(status_->queryInterval(), 125.0);
}

TEST_F(QuerierSmRelease, LetsGoOfBoundaryAndAttributeLog) {
  const auto boundary = makePtr<Ilvo::IntfBoundaryStatus>();
  start().mcastBoundaryIntfStatusIs(boundary);
  giveAttrLog();
  EXPECT_EQ(boundary->refs(), 2u);
  EXPECT_EQ(monitor_->refs(), 2u);
  release();
  EXPECT_EQ(boundary->refs(), 1u);
  EXPECT_EQ(monitor_->refs(), 1u);
}

TEST_F(QuerierSmRelease, AGroupMachineThatSomebodyKeepsIsInert) {
  start();
  hearRecord(1, group_, {source_});
  const Ptr<QuerierGroupSm> kept = groupSm(group_);
  watch(status_->group(group_), "group");
  release();
  Recorder<QuerierGroupStatus> stillGroup(status_->group(group_), "group", journal_);
  EXPECT_TRUE(kept->ended());
  kept->doSetTimer(QuerierGroupSm::membershipTimerId, 1.0);
  kept->handleMembershipTimer();
  kept->handleRexmitTimer();
  EXPECT_EQ(wheel_->armed(), 0u);
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(QuerierSmRelease, MayComeInAnyNotificationOfTheQueryTimer) {
  EXPECT_EQ(releaseAtEachNotification([&] { start(); }, [&] { runFor(10.0); }), 4u);
}

TEST_F(QuerierSmRelease, MayComeInAnyNotificationOfAConfigurationChange) {
  const auto prepare = [&] {
    setup_.startupQueryIntervalDefault = 30;
    start();
    hearV2Report(group_);
  };
  const std::vector<Deed> changes = {
      [&] { config_->queryIntervalIs(60.0); },
      [&] { config_->queryResponseIntervalIs(5.0); },
      [&] { config_->robustnessIs(3); },
      [&] { config_->startupQueryIntervalIs(20.0); },
      [&] { config_->querierVersionIs(igmpVersion1); },
      [&] { config_->sendQueryIs(false); },
  };
  for (const auto& change : changes) EXPECT_GE(releaseAtEachNotification(prepare, change), 1u);
}

TEST_F(QuerierSmRelease, MayComeWhileSendingIsSwitchedOnAgain) {
  const auto prepare = [&] {
    start();
    config_->sendQueryIs(false);
  };
  EXPECT_GE(releaseAtEachNotification(prepare, [&] { config_->sendQueryIs(true); }), 3u);
}

TEST_F(QuerierSmRelease, MayComeWhileTheElectionIsLostOrWon) {
  const auto lose = [&] { hearV3Query(lower_, {.qrv = 3, .qqic = 60}); };
  EXPECT_GE(releaseAtEachNotification([&] { start(); }, lose), 6u);
  const auto prepare = [&] {
    start();
    lose();
  };
  EXPECT_GE(releaseAtEachNotification(prepare, [&] { runFor(200.0); }), 8u);
}

TEST_F(QuerierSmRelease, MayComeWhileReportsAndLeavesAreProcessed) {
  const auto prepare = [&] {
    start();
    silenceGeneralQueries();
    hearRecord(2, group_, {source_});
  };
  const std::vector<Deed> packets = {
      [&] { hearV1Report(group_); },
      [&] { hearV2Report(group_); },
      [&] {
        hearRecord(1, group2_, {source_, host_});
      },
      [&] { hearRecord(6, group_, {host_}); },
      [&] {
        hearRecord(4, group_, {source_, host_});
      },
      [&] { hearV3Query(lower_, {.group = group_}); },
      [&] { hearV2Query(higher_, IpAddr(239, 1, 1, 3)); },
  };
  for (const auto& packet : packets) EXPECT_GE(releaseAtEachNotification(prepare, packet), 2u);
}

TEST_F(QuerierSmRelease, MayComeWhileALeftGroupIsAskedForAndEnds) {
  const auto prepare = [&] {
    start();
    silenceGeneralQueries();
    hearRecord(4, group_);
    hearLeave(group_);
  };
  const auto expire = [&] {
    for (int step = 0; step < 30 && wheel_->armed() > 0; ++step) runFor(0.1);
  };
  EXPECT_GE(releaseAtEachNotification(prepare, expire), 10u);
}

TEST_F(QuerierSmRelease, MayComeInDirectCalls) {
  const auto prepare = [&] {
    start();
    runFor(10.0);
  };
  const std::vector<Deed> calls = {
      [&] { querier_->clearCounters(); },
      [&] { querier_->becomeQuerier(); },
      [&] { querier_->handleInitialized(); },
      [&] { querier_->handleOtherQuerierTimer(); },
      [&] { querier_->doSetTimer(QuerierSm::otherQuerierTimerId, 5.0); },
  };
  for (const auto& call : calls) EXPECT_GE(releaseAtEachNotification(prepare, call), 1u);
}

TEST_F(QuerierSmRelease, MayComeWhileGroupsAreRebuilt) {
  setup_.debugYieldAfterOne = true;
  const auto prepare = [&] {
    config_->sendQueryIs(false);
    for (const IpAddr group : {IpAddr(239, 0, 0, 1), group_, IpAddr(239, 2, 0, 0)}) {
      status_->groupIs(group)->filterModeIs(filterModeExclude);
      status_->group(group)->sourceIs(source_);
    }
    start();
  };
  EXPECT_GE(releaseAtEachNotification(prepare, [&] { runFor(0.0); }), 4u);
}

}  // namespace

}  // namespace Gmp::Igmp::testing
