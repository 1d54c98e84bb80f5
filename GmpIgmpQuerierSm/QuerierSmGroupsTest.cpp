// The registry of group machines, and their rebuilding from a status that holds groups already.
#include "Once.h"
#include "TestBench.h"

#include <Mox/Errors.h>

namespace Gmp::Igmp::testing {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Status = QuerierStatus;

namespace {

const std::string batch = "QuerierSm( vlan10 )::handleQuerierGroupStatus()";

class QuerierSmGroups : public TestBench {
 protected:
  static constexpr IpAddr group3_{239, 1, 1, 3};
  static constexpr Seconds membershipInterval_ = 260.0;  // 2 * 125 + 10

  // Without the querier's role, so that rebuilding is all that happens.
  void startRebuilding() {
    config_->sendQueryIs(false);
    start();
  }
  Ptr<QuerierGroupStatus> preload(IpAddr group, IgmpFilterMode mode = filterModeExclude) {
    Ptr<QuerierGroupStatus> status = status_->groupIs(group);
    status->filterModeIs(mode);
    return status;
  }
  void preloadThree() {
    for (const IpAddr group : {group3_, group_, group2_}) preload(group);
  }
  void preloadSource(IpAddr group, IpAddr source, bool expired) {
    status_->group(group)->sourceIs(source)->expiredIs(expired);
  }
  std::vector<std::string> batchTraces() const {
    std::vector<std::string> texts;
    for (const std::string& text : traceTexts()) {
      if (text.starts_with(batch + ":")) texts.push_back(text.substr(batch.size()));
    }
    return texts;
  }
};

TEST_F(QuerierSmGroups, AnUnknownGroupIsMadeWithItsStatusEntry) {
  start();
  traces_.clear();
  const Ptr<QuerierGroupSm> made = getOrCreateGroupSm(querier_, group_);
  EXPECT_EQ(groupSm(group_), made);
  EXPECT_EQ(made->groupStatus(), groupStatus(group_));
  EXPECT_EQ(status_->joins(), 1u);
  EXPECT_EQ(traceTexts()[0], "Create groupSm for group 239.1.1.1");
  EXPECT_EQ(traced("QuerierSm( vlan10 )::handleGroupSm()"), 1u);
  EXPECT_EQ(tracedBegin("Delete group"), 0u);
}

TEST_F(QuerierSmGroups, AKnownGroupIsFound) {
  start();
  const Ptr<QuerierGroupSm> made = getOrCreateGroupSm(querier_, group_);
  traces_.clear();
  EXPECT_EQ(getOrCreateGroupSm(querier_, group_), made);
  EXPECT_THAT(traceTexts(), ElementsAre("Found groupSm for group 239.1.1.1"));
  EXPECT_EQ(status_->joins(), 1u);
}

TEST_F(QuerierSmGroups, AGroupTimersRunOnTheGeneralQueryWheel) {
  setup_.queryIntervalTimer = makePtr<Obel::TimerWheel>(begin_);
  start();
  const Ptr<QuerierGroupSm> made = getOrCreateGroupSm(querier_, group_);
  for (const auto& wheel : {made->membershipTimer(), made->v1MembershipTimer(),
                            made->v2MembershipTimer(), made->rexmitTimer()}) {
    EXPECT_EQ(wheel, setup_.queryIntervalTimer);
  }
}

TEST_F(QuerierSmGroups, AGroupThatTheStatusHoldsIsSeededFromIt) {
  start();
  preload(group_);
  preloadSource(group_, source_, false);
  traces_.clear();
  const Ptr<QuerierGroupSm> made = getOrCreateGroupSm(querier_, group_);
  EXPECT_EQ(made->membershipTimerExpiry(), now() + membershipInterval_);
  EXPECT_NE(made->source(source_), nullptr);
  EXPECT_EQ(traceTexts()[0], "Create groupSm for group 239.1.1.1");
  EXPECT_EQ(traced(batch + ": processing group 239.1.1.1"), 1u);
}

TEST_F(QuerierSmGroups, AGroupWhoseStatusIsStaleStartsAfresh) {
  start();
  const Ptr<QuerierGroupStatus> stale = preload(group_, filterModeInclude);
  const Ptr<QuerierGroupSm> made = getOrCreateGroupSm(querier_, group_);
  ASSERT_NE(made, nullptr);
  EXPECT_NE(groupStatus(group_), stale);
  EXPECT_EQ(made->groupStatus(), groupStatus(group_));
}

TEST_F(QuerierSmGroups, TheSameWheelsGiveTheSameMachine) {
  start();
  const Ptr<QuerierGroupSm> made = querier_->groupSmIs(group_, wheel_, wheel_, wheel_, wheel_);
  EXPECT_EQ(querier_->groupSmIs(group_, wheel_, wheel_, wheel_, wheel_), made);
  EXPECT_EQ(status_->joins(), 1u);
}

TEST_F(QuerierSmGroups, AnotherWheelIsANameInUseThatNamesTheAttribute) {
  start();
  querier_->groupSmIs(group_, wheel_, wheel_, wheel_, wheel_);
  const QuerierSm::Wheel other = makePtr<Obel::TimerWheel>(begin_);
  const std::array names = {"_membershipTimer", "_v1MembershipTimer", "_v2MembershipTimer",
                            "_rexmitTimer"};
  for (size_t at = 0; at < names.size(); ++at) {
    std::array<QuerierSm::Wheel, 4> wheels = {wheel_, wheel_, wheel_, wheel_};
    wheels[at] = other;
    try {
      querier_->groupSmIs(group_, wheels[0], wheels[1], wheels[2], wheels[3]);
      ADD_FAILURE() << "no error for " << names[at];
    } catch (const Mox::NameInUseError& error) {
      EXPECT_EQ(error.attribute(), names[at]);
      EXPECT_THAT(error.what(), ::testing::HasSubstr(names[at]));
    }
  }
}

TEST_F(QuerierSmGroups, DeletingAMachineRemovesItsStatusEntry) {
  start();
  const Ptr<QuerierGroupSm> made = getOrCreateGroupSm(querier_, group_);
  watch(status_, "status");
  traces_.clear();
  querier_->groupSmDel(group_);
  EXPECT_TRUE(made->ended());
  EXPECT_EQ(groupSm(group_), nullptr);
  EXPECT_THAT(journal_, ElementsAre("status.group 239.1.1.1"));
  EXPECT_EQ(status_->group(group_), nullptr);
  EXPECT_THAT(traceTexts(), ElementsAre("QuerierSm( vlan10 )::handleGroupSm()",
                                        "Delete group 239.1.1.1 from status vlan10"));
}

TEST_F(QuerierSmGroups, DeletingAnUnknownGroupDoesNothing) {
  start();
  preload(group2_);  // not rebuilt yet
  watch(status_, "status");
  querier_->groupSmDel(group_);
  querier_->groupSmDel(group2_);
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(QuerierSmGroups, DeletingAllLeavesNeitherMachineNorEntryNorTimer) {
  start();
  silenceGeneralQueries();
  for (const IpAddr group : {group_, group2_, group3_}) receiveV2Report(group);
  querier_->groupSmDelAll();
  EXPECT_TRUE(querier_->groupSm().empty());
  EXPECT_TRUE(status_->group().empty());
  EXPECT_EQ(wheel_->armed(), 0u);
}

TEST_F(QuerierSmGroups, AReactionToAGroupThatIsThereKeepsItsEntry) {
  start();
  receiveV2Report(group_);
  traces_.clear();
  querier_->handleGroupSm(group_);
  EXPECT_NE(status_->group(group_), nullptr);
  EXPECT_THAT(traceTexts(), ElementsAre("QuerierSm( vlan10 )::handleGroupSm()"));
}

TEST_F(QuerierSmGroups, PendingGroupsAreASet) {
  QuerierSm& sm = start();
  sm.pendingRexmitIs(group_, true);
  sm.pendingRexmitIs(group2_, true);
  sm.pendingRexmitIs(group_, false);
  EXPECT_THAT(sm.pendingRexmit().keys(), UnorderedElementsAre(group_, group2_));
  EXPECT_FALSE(*sm.pendingRexmit().find(group_));
  sm.pendingRexmitDel(group_);
  EXPECT_THAT(sm.pendingRexmit().keys(), ElementsAre(group2_));
  sm.pendingRexmitDelAll();
  EXPECT_TRUE(sm.pendingRexmit().empty());
}

TEST_F(QuerierSmGroups, PendingGroupsNotifyOfEachChangeOnce) {
  QuerierSm& sm = start();
  watch(querier_, "querier");
  sm.pendingRexmitIs(group_, true);
  sm.pendingRexmitIs(group_, true);
  sm.pendingRexmitIs(group_, false);
  sm.pendingRexmitDel(group2_);
  EXPECT_THAT(takeJournal(),
              ElementsAre("querier.pendingRexmit 239.1.1.1", "querier.pendingRexmit 239.1.1.1"));
  sm.pendingRexmitDelAll();
  sm.pendingRexmitDelAll();
  sm.pendingRexmitNotify(group2_);
  EXPECT_THAT(takeJournal(),
              ElementsAre("querier.pendingRexmit 239.1.1.1", "querier.pendingRexmit 239.1.1.2"));
}

TEST_F(QuerierSmGroups, MachinesAreNotifiedAfterTheirEntries) {
  start();
  watch(querier_, "querier");
  watch(status_, "status");
  getOrCreateGroupSm(querier_, group_);
  getOrCreateGroupSm(querier_, group_);
  EXPECT_THAT(takeJournal(),
              ElementsAre("status.joins 1", "status.group 239.1.1.1", "querier.groupSm 239.1.1.1"));
  querier_->groupSmDel(group_);
  querier_->groupSmDel(group_);
  EXPECT_THAT(takeJournal(), ElementsAre("status.group 239.1.1.1", "querier.groupSm 239.1.1.1"));
  querier_->groupSmNotify(group2_);
  EXPECT_THAT(takeJournal(), ElementsAre("querier.groupSm 239.1.1.2"));
}

TEST_F(QuerierSmGroups, TheQuerierMayBeReleasedWhileItsGroupsEnd) {
  start();
  silenceGeneralQueries();
  for (const IpAddr group : {group_, group2_, group3_}) receiveV2Report(group);
  const Once<Status> once(status_, "group", [&] { release(); });
  QuerierSm* const querier = querier_.get();
  querier->groupSmDelAll();
  EXPECT_EQ(querier_, nullptr);
  EXPECT_TRUE(status_->group().empty());
  EXPECT_EQ(wheel_->armed(), 0u);
}

TEST_F(QuerierSmGroups, AnEmptyStatusIsFinishedAtOnce) {
  startRebuilding();
  EXPECT_THAT(batchTraces(), ElementsAre(": finished processing groups"));
  EXPECT_EQ(querier_->initGroupStatusBookmark(), IpAddr());
  EXPECT_EQ(querier_->initGroupStatusTimerMin(), never);
}

TEST_F(QuerierSmGroups, AllGroupsAreRebuiltInAddressOrderInOneBatch) {
  preloadThree();
  startRebuilding();
  EXPECT_THAT(batchTraces(),
              ElementsAre(": processing group 239.1.1.1", ": processing group 239.1.1.2",
                          ": processing group 239.1.1.3", ": finished processing groups"));
  EXPECT_EQ(querier_->groupSm().size(), 3u);
}

TEST_F(QuerierSmGroups, RebuildingIsTracedAsDetail) {
  preloadThree();
  status_->group(group_)->filterModeIs(filterModeInclude);
  startRebuilding();
  EXPECT_EQ(traced("Delete group 239.1.1.1 from status"), 1u);
  EXPECT_EQ(tracedBegin("QuerierSm( vlan10 )::handleQuerierGroupStatus(): "), 4u);
  for (const std::string& text : traceTexts("", 5)) {
    EXPECT_EQ(text.find("from status"), std::string::npos) << text;
    EXPECT_EQ(text.find("handleQuerierGroupStatus"), std::string::npos) << text;
  }
}

TEST_F(QuerierSmGroups, DebugYieldStopsAfterEachGroup) {
  preloadThree();
  setup_.debugYieldAfterOne = true;
  startRebuilding();
  EXPECT_EQ(querier_->groupSm().size(), 1u);
  EXPECT_EQ(querier_->initGroupStatusBookmark(), group2_);
  EXPECT_EQ(querier_->initGroupStatusTimerMin(), now());
  watch(Ptr<const QuerierSm>(querier_), "sm");
  traces_.clear();
  wheel_->turn(now());
  EXPECT_EQ(querier_->initGroupStatusBookmark(), group3_);
  wheel_->turn(now());
  EXPECT_EQ(querier_->initGroupStatusBookmark(), IpAddr());
  EXPECT_EQ(querier_->initGroupStatusTimerMin(), never);
  EXPECT_THAT(journal_, ElementsAre("sm.groupSm 239.1.1.2", "sm.initGroupStatusBookmark 239.1.1.3",
                                    "sm.groupSm 239.1.1.3", "sm.initGroupStatusBookmark 0.0.0.0"));
  EXPECT_THAT(batchTraces(),
              ElementsAre(": processing group 239.1.1.2",
                          ": giving up processor for now, setting bookmark to 239.1.1.3",
                          ": processing group 239.1.1.3", ": finished processing groups"));
}

TEST_F(QuerierSmGroups, OneGroupIsFinishedAtOnceEvenWithDebugYield) {
  preload(group_);
  setup_.debugYieldAfterOne = true;
  startRebuilding();
  EXPECT_EQ(querier_->initGroupStatusTimerMin(), never);
}

TEST_F(QuerierSmGroups, ABatchEndsWhenItsFiveMillisecondsAreReached) {
  class Slow final : public Status::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    // The second group takes what is left of the batch, to the last bit.
    void onJoins() override {
      Mox::virtualTimeIs(notifier()->joins() == 2 ? begin_ + 0.005 : Mox::now() + 0.001);
    }
  };
  preloadThree();
  const Slow slow(status_);
  startRebuilding();
  EXPECT_EQ(querier_->groupSm().size(), 2u);
  EXPECT_EQ(querier_->initGroupStatusBookmark(), group3_);
  EXPECT_EQ(querier_->initGroupStatusTimerMin(), now());
  runFor(0.0);
  EXPECT_EQ(querier_->groupSm().size(), 3u);
}

TEST_F(QuerierSmGroups, ACloggedLogStopsEachBatchAfterOneGroupUntilItDrains) {
  preloadThree();
  status_->groupIs(IpAddr(239, 1, 1, 4))->filterModeIs(filterModeExclude);
  setup_.debugYieldAfterOne = true;  // so that the log can be given before the rest
  startRebuilding();
  querier_->debugYieldAfterOneIs(false);
  clog();
  wheel_->turn(now());
  EXPECT_EQ(querier_->groupSm().size(), 2u);
  EXPECT_EQ(querier_->initGroupStatusBookmark(), group3_);
  wheel_->turn(now());
  EXPECT_EQ(querier_->groupSm().size(), 3u);
  EXPECT_EQ(querier_->initGroupStatusBookmark(), IpAddr(239, 1, 1, 4));
  querier_->initGroupStatusBookmarkIs(group_);  // all anew, with the log drained
  unclog();
  wheel_->turn(now());
  EXPECT_EQ(querier_->groupSm().size(), 4u);
  EXPECT_EQ(querier_->initGroupStatusTimerMin(), never);
}

TEST_F(QuerierSmGroups, TheLogIsAskedOnlyWhenNothingElseEndsTheBatch) {
  preloadThree();
  setup_.debugYieldAfterOne = true;
  startRebuilding();
  giveAttrLog();
  const Mox::S32 left = monitor_->iterUntilBufferCheck();
  wheel_->turn(now());
  EXPECT_EQ(monitor_->iterUntilBufferCheck(), left);
}

TEST_F(QuerierSmGroups, AGroupMadeByAPacketMeanwhileIsSkipped) {
  preloadThree();
  setup_.debugYieldAfterOne = true;
  startRebuilding();
  receiveV2Report(group2_);
  const Ptr<QuerierGroupSm> made = groupSm(group2_);
  ASSERT_NE(made, nullptr);
  traces_.clear();
  runFor(0.0);
  EXPECT_EQ(groupSm(group2_), made);
  EXPECT_EQ(traced(batch + ": skipping processing group 239.1.1.2"), 1u);
  EXPECT_EQ(status_->joins(), 3u);
}

TEST_F(QuerierSmGroups, ABookmarkWhoseGroupEndedResumesAtTheNextOne) {
  preloadThree();
  setup_.debugYieldAfterOne = true;
  startRebuilding();
  status_->groupDel(group2_);
  wheel_->turn(now());
  EXPECT_NE(groupSm(group3_), nullptr);
  EXPECT_EQ(querier_->initGroupStatusTimerMin(), never);
}

TEST_F(QuerierSmGroups, ABookmarkBehindTheLastGroupIsTheEnd) {
  preloadThree();
  setup_.debugYieldAfterOne = true;
  startRebuilding();
  status_->groupDel(group2_);
  status_->groupDel(group3_);
  wheel_->turn(now());
  EXPECT_EQ(querier_->initGroupStatusBookmark(), IpAddr());
  EXPECT_EQ(querier_->groupSm().size(), 1u);
}

TEST_F(QuerierSmGroups, AGroupThatTheStatusLacksIsNotRebuilt) {
  start();
  traces_.clear();
  querier_->handleQuerierGroupStatus(group_);
  EXPECT_EQ(groupSm(group_), nullptr);
  EXPECT_THAT(traceTexts(), IsEmpty());
}

}  // namespace

}  // namespace Gmp::Igmp::testing
