// The release of a querier: what is left behind, and that it may happen at any moment, in
// particular in the middle of one of its own handlers.
#include "NotificationBench.h"

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Status = QuerierStatus;

namespace {

class ObservedSocket final : public Mox::NboAttrLog::SocketOutSm {
 public:
  explicit ObservedSocket(std::function<void()> onEnd) : onEnd_(std::move(onEnd)) {}
  ~ObservedSocket() override { onEnd_(); }
  int sockFd() const override { return 0; }
  int connectionFd() const override { return -1; }

 private:
  const std::function<void()> onEnd_;
};

class QuerierSmRelease : public NotificationBench {
 protected:
  // Releases the querier at each notification of the action. The number of notifications.
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
  receiveV2Report(group_);
  receiveRecord(1, group2_, {source_});
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
  receiveV2Report(group_);
  receiveLeave(group_);
  receiveV3Query(lower_);
  release();
  EXPECT_EQ(wheel_->armed(), 0u);
  EXPECT_EQ(config_->notifieeList().size(), 0u);
  EXPECT_EQ(config_->refs(), 1u);
  EXPECT_EQ(status_->refs(), 1u);
  config_->queryIntervalIs(60.0);
  EXPECT_EQ(status_->queryInterval(), 125.0);
}

TEST_F(QuerierSmRelease, ReleasesBoundaryAndAttributeLog) {
  const auto boundary = makePtr<Ilvo::IntfBoundaryStatus>();
  start().mcastBoundaryIntfStatusIs(boundary);
  giveAttrLog();
  EXPECT_EQ(boundary->refs(), 2u);
  EXPECT_EQ(monitor_->refs(), 2u);
  release();
  EXPECT_EQ(boundary->refs(), 1u);
  EXPECT_EQ(monitor_->refs(), 1u);
}

TEST_F(QuerierSmRelease, AGroupMachineThatIsStillHeldIsInert) {
  start();
  receiveRecord(1, group_, {source_});
  const Ptr<QuerierGroupSm> kept = groupSm(group_);
  watch(status_->group(group_), "group");
  release();
  Recorder<QuerierGroupStatus> stillGroup(status_->group(group_), "group", journal_);
  EXPECT_TRUE(kept->ended());
  kept->doSetTimer(QuerierGroupSm::membershipTimerId, 1.0);
  kept->handleMembershipTimer();
  kept->handleV1MembershipTimer();
  kept->handleV2MembershipTimer();
  kept->handleRexmitTimer();
  kept->handleQuerierVersion();
  kept->handleRxV1Report();
  kept->handleRxV2Report();
  kept->handleRxLeave();
  kept->handleRxV3Report({igmpVersion3, RecordType(4), group_, {source_}});
  kept->handleRxGSQuery();
  EXPECT_EQ(wheel_->armed(), 0u);
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(QuerierSmRelease, MayHappenInAnyNotificationOfTheQueryTimer) {
  EXPECT_EQ(releaseAtEachNotification([&] { start(); }, [&] { runFor(10.0); }), 4u);
}

TEST_F(QuerierSmRelease, MayHappenInAnyNotificationOfAConfigurationChange) {
  const auto prepare = [&] {
    setup_.startupQueryIntervalDefault = 30;
    start();
    receiveV2Report(group_);
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

TEST_F(QuerierSmRelease, MayHappenWhileSendingIsSwitchedOnAgain) {
  const auto prepare = [&] {
    start();
    config_->sendQueryIs(false);
  };
  EXPECT_GE(releaseAtEachNotification(prepare, [&] { config_->sendQueryIs(true); }), 3u);
}

TEST_F(QuerierSmRelease, MayHappenWhileTheElectionIsLostOrWon) {
  const auto lose = [&] { receiveV3Query(lower_, {.qrv = 3, .qqic = 60}); };
  EXPECT_GE(releaseAtEachNotification([&] { start(); }, lose), 6u);
  const auto prepare = [&] {
    start();
    lose();
  };
  EXPECT_GE(releaseAtEachNotification(prepare, [&] { runFor(200.0); }), 8u);
}

TEST_F(QuerierSmRelease, MayHappenWhileReportsAndLeavesAreProcessed) {
  const auto prepare = [&] {
    start();
    silenceGeneralQueries();
    receiveRecord(2, group_, {source_});
  };
  const std::vector<Deed> packets = {
      [&] { receiveV1Report(group_); },
      [&] { receiveV2Report(group_); },
      [&] {
        receiveRecord(1, group2_, {source_, host_});
      },
      [&] { receiveRecord(6, group_, {host_}); },
      [&] {
        receiveRecord(4, group_, {source_, host_});
      },
      [&] { receiveV3Query(lower_, {.group = group_}); },
      [&] { receiveV2Query(higher_, IpAddr(239, 1, 1, 3)); },
  };
  for (const auto& packet : packets) EXPECT_GE(releaseAtEachNotification(prepare, packet), 2u);
}

TEST_F(QuerierSmRelease, MayHappenWhileALeftGroupIsQueriedAndEnds) {
  const auto prepare = [&] {
    start();
    silenceGeneralQueries();
    receiveRecord(4, group_);
    receiveLeave(group_);
  };
  const auto expire = [&] {
    for (int step = 0; step < 30 && wheel_->armed() > 0; ++step) runFor(0.1);
  };
  EXPECT_GE(releaseAtEachNotification(prepare, expire), 10u);
}

// The monitor is the last that the querier releases.
TEST_F(QuerierSmRelease, ReleasesTheMonitorLast) {
  const auto boundary = makePtr<Ilvo::IntfBoundaryStatus>();
  std::vector<U32> refsThen;
  const auto atEnd = [&] {
    refsThen = {wheel_->refs(), status_->refs(), config_->refs(), boundary->refs()};
  };
  start().mcastBoundaryIntfStatusIs(boundary);
  receiveV2Report(group_);
  querier_->attrLogSmIs(gmpAttrLogSmFactory(makePtr<ObservedSocket>(atEnd)));
  EXPECT_THAT(refsThen, IsEmpty());
  release();
  EXPECT_THAT(refsThen, ElementsAre(1u, 1u, 1u, 1u));
}

// A notifiee of the whole tree below the querier is notified of the end of each group.
TEST_F(QuerierSmRelease, EndsItsGroupsOneByOne) {
  class Groups final : public Mox::TreeNotifiee {
   public:
    void onAttr(const Mox::EntityBase&, Mox::AttrId) override {}
    void onMember(const Mox::EntityBase& entity, Mox::AttrId, U32 key) override {
      ended_.push_back(IpAddr(key));
      left_.push_back(static_cast<const QuerierSm&>(entity).groupSm().size());
    }
    void onCollection(const Mox::EntityBase&, Mox::AttrId) override {}
    std::vector<IpAddr> ended_;
    std::vector<size_t> left_;
  } groups;
  start();
  receiveV2Report(group_);
  receiveV2Report(group2_);
  querier_->treeNotifieeAdd(&groups);
  release();
  EXPECT_THAT(groups.ended_, ::testing::UnorderedElementsAre(group_, group2_));
  EXPECT_THAT(groups.left_, ElementsAre(1u, 0u));
  EXPECT_EQ(status_->group().size(), 2u);
}

// A host deletes them a few at a time. A querier that follows it may run on the status by then.
TEST_F(QuerierSmRelease, OfItsGroupsMayFollowItsEnd) {
  start();
  receiveV2Report(group_);
  receiveLeave(group_);
  receiveRecord(1, group2_, {source_});
  takeSent();
  watch(status_, "status");
  watch(status_->group(group_), "group");
  Recorder<QuerierGroupStatus> second(status_->group(group2_), "group2", journal_);
  journal_.clear();
  querier_->end();
  runFor(1000.0);
  EXPECT_EQ(querier_->groupSm().size(), 2u);
  querier_->groupSmDel(group_);
  querier_->groupSmDel(group2_);
  EXPECT_EQ(querier_->groupSm().size(), 0u);
  release();
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_THAT(takeSent(), IsEmpty());
  EXPECT_EQ(status_->group().size(), 2u);
}

TEST_F(QuerierSmRelease, MayHappenWhileGroupsAreRebuilt) {
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
