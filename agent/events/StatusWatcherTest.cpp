#include <Events/StatusWatcher.h>

#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Mox/ActivityClock.h>

#include <AgentTestSupport/EventRecorder.h>
#include <AgentTestSupport/TestAddresses.h>

namespace Agent {
namespace {

using Gmp::Igmp::filterModeExclude;
using Gmp::Igmp::filterModeInclude;
using Gmp::Igmp::igmpVersion1;
using Gmp::Igmp::igmpVersion2;
using Gmp::Igmp::igmpVersion3;
using Gmp::Igmp::QuerierGroupStatus;
using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using Mox::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr IpAddr other(239, 2, 2, 2);

class StatusWatcherTest : public testing::Test {
 protected:
  StatusWatcherTest() { Mox::virtualTimeIs(1000.0); }
  ~StatusWatcherTest() override { Mox::realTimeIs(); }

  Ptr<QuerierGroupStatus> join(IpAddr addr) {
    Ptr<QuerierGroupStatus> joined = status_->groupIs(addr);
    joined->lastReporterIs(host);
    joined->compatibilityModeIs(igmpVersion2);
    joined->filterModeIs(filterModeExclude);
    return joined;
  }
  Ptr<QuerierGroupStatus> joinVersion3(IpAddr addr, Gmp::Igmp::IgmpFilterMode mode) {
    Ptr<QuerierGroupStatus> joined = status_->groupIs(addr);
    joined->lastReporterIs(host);
    joined->filterModeIs(mode);
    return joined;
  }
  std::vector<std::string> reported() {
    watcher_.flush();
    return events_.taken();
  }

  EventRecorder events_;
  Ptr<QuerierStatus> status_ = Gmp::Igmp::querierStatusFactory();
  StatusWatcher watcher_{"eth0", status_, events_};
};

TEST_F(StatusWatcherTest, reportsNothingOfAFreshStatus) { EXPECT_THAT(reported(), IsEmpty()); }

TEST_F(StatusWatcherTest, reportsNothingBeforeTheFlush) {
  join(group);
  EXPECT_THAT(events_.taken(), IsEmpty());
}

TEST_F(StatusWatcherTest, aJoinShowsTheGroupAfterTheWholeReport) {
  join(group);
  Mox::virtualTimeIs(1000.5);
  EXPECT_THAT(reported(), ElementsAre("1000.5 joined 239.1.1.1 by 10.0.0.11 (version 2)"));
  EXPECT_EQ(events_.events().front().interface, "eth0");
}

TEST_F(StatusWatcherTest, reportsEachChangeOnce) {
  join(group);
  watcher_.flush();
  events_.taken();
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(StatusWatcherTest, knownGroupsAreReportedWhenTheyChange) {
  const Ptr<QuerierStatus> status = Gmp::Igmp::querierStatusFactory();
  status->groupIs(group)->compatibilityModeIs(igmpVersion2);
  status->groupIs(other)->sourceIs(sender);
  StatusWatcher watcher("eth0", status, events_, nullptr, EventScope::all, FirstGroups::known);
  watcher.flush();
  EXPECT_THAT(events_.taken(), IsEmpty());
  status->group(group)->compatibilityModeIs(igmpVersion1);
  status->group(other)->source(sender)->expiredIs(true);
  watcher.flush();
  EXPECT_THAT(events_.taken(), ElementsAre("1000 changed 239.1.1.1 (version 1, include)",
                                           "1000 left 239.2.2.2 source 10.0.0.50"));
}

TEST_F(StatusWatcherTest, aRoleIsReportedWithItsQuerierWhenEitherChanges) {
  status_->electedQuerierAddrIs(IpAddr(10, 0, 0, 5));
  status_->stateIs(QuerierStatus::querierStateQuerier);
  EXPECT_THAT(reported(), ElementsAre("1000 role querier (elected 10.0.0.5)"));
  status_->electedQuerierAddrIs(IpAddr(10, 0, 0, 1));
  EXPECT_THAT(reported(), ElementsAre("1000 role querier (elected 10.0.0.1)"));
  status_->stateIs(QuerierStatus::querierStateNonQuerier);
  EXPECT_THAT(reported(), ElementsAre("1000 role nonQuerier (elected 10.0.0.1)"));
}

TEST_F(StatusWatcherTest, changesOfModeAndVersionAreOneEvent) {
  const auto joined = join(group);
  reported();
  joined->compatibilityModeIs(igmpVersion1);
  joined->filterModeIs(filterModeInclude);
  EXPECT_THAT(reported(), ElementsAre("1000 changed 239.1.1.1 (version 1, include)"));
}

TEST_F(StatusWatcherTest, aValueThatChangedBackIsNotReported) {
  const auto joined = joinVersion3(group, filterModeInclude);
  joined->sourceIs(sender);
  reported();
  joined->filterModeIs(filterModeExclude);
  joined->filterModeIs(filterModeInclude);
  joined->source(sender)->expiredIs(true);
  joined->source(sender)->expiredIs(false);
  joined->compatibilityModeIs(igmpVersion1);
  joined->compatibilityModeIs(igmpVersion3);
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(StatusWatcherTest, aVersionThatChangedBackIsNotReported) {
  const auto joined = join(group);
  reported();
  joined->compatibilityModeIs(igmpVersion3);
  joined->compatibilityModeIs(igmpVersion2);
  EXPECT_THAT(reported(), IsEmpty());
  joined->compatibilityModeIs(igmpVersion1);
  EXPECT_THAT(reported(), ElementsAre("1000 changed 239.1.1.1 (version 1)"));
  joined->compatibilityModeIs(igmpVersion2);
  EXPECT_THAT(reported(), ElementsAre("1000 changed 239.1.1.1 (version 2)"));
}

TEST_F(StatusWatcherTest, aSourceThatWentWithAChangeOfModeAndCameBackLeftBeforeItJoined) {
  const auto joined = joinVersion3(group, filterModeInclude);
  joined->sourceIs(sender);
  reported();
  joined->filterModeIs(filterModeExclude);
  joined->sourceDel(sender);
  joined->sourceIs(sender);
  EXPECT_THAT(reported(), ElementsAre("1000 changed 239.1.1.1 (version 3, exclude)",
                                      "1000 left 239.1.1.1 source 10.0.0.50",
                                      "1000 joined 239.1.1.1 source 10.0.0.50"));
}

TEST_F(StatusWatcherTest, aRefreshOfTheGroupIsNotReported) {
  const auto joined = join(group);
  reported();
  joined->expiryTimeIs(1260.0);
  joined->lastReporterIs(IpAddr(10, 0, 0, 12));
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(StatusWatcherTest, aGroupThatFellBackToIncludeBeforeItWentOnlyLeft) {
  const auto joined = join(group);
  reported();
  joined->filterModeIs(filterModeInclude);
  status_->groupDel(group);
  EXPECT_THAT(reported(), ElementsAre("1000 left 239.1.1.1"));
}

TEST_F(StatusWatcherTest, aGroupThatCameAndWentWithinOneFlushIsNoEvent) {
  join(group)->sourceIs(sender);
  join(other);
  status_->groupDel(group);
  EXPECT_THAT(reported(), ElementsAre("1000 joined 239.2.2.2 by 10.0.0.11 (version 2)"));
}

TEST_F(StatusWatcherTest, aSourceThatCameAndWentWithinOneFlushIsNoEvent) {
  const auto joined = joinVersion3(group, filterModeExclude);
  reported();
  joined->sourceIs(sender);
  joined->sourceDel(sender);
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(StatusWatcherTest, aGroupThatWentAndCameBackIsReportedInOrder) {
  join(group);
  reported();
  status_->groupDel(group);
  join(group);
  EXPECT_THAT(reported(),
              ElementsAre("1000 left 239.1.1.1", "1000 joined 239.1.1.1 by 10.0.0.11 (version 2)"));
}

TEST_F(StatusWatcherTest, sourcesOfAnIncludeGroupJoinAndLeave) {
  const auto joined = joinVersion3(group, filterModeInclude);
  joined->sourceIs(sender);
  EXPECT_THAT(reported(), ElementsAre("1000 joined 239.1.1.1 by 10.0.0.11 (version 3, include)",
                                      "1000 joined 239.1.1.1 source 10.0.0.50"));
  joined->source(sender)->expiredIs(true);
  joined->sourceDel(sender);
  EXPECT_THAT(reported(), ElementsAre("1000 left 239.1.1.1 source 10.0.0.50"));
}

TEST_F(StatusWatcherTest, anExpiredSourceOfAnExcludeGroupIsExcluded) {
  const auto joined = joinVersion3(group, filterModeExclude);
  const auto source = joined->sourceIs(sender);
  reported();
  source->expiredIs(true);
  EXPECT_THAT(reported(), ElementsAre("1000 excluded 239.1.1.1 source 10.0.0.50"));
  source->expiredIs(false);
  EXPECT_THAT(reported(), ElementsAre("1000 joined 239.1.1.1 source 10.0.0.50"));
}

TEST_F(StatusWatcherTest, aChangeOfModeChangesWhatAnExpiredSourceMeans) {
  const auto joined = joinVersion3(group, filterModeExclude);
  joined->sourceIs(sender)->expiredIs(true);
  reported();
  joined->filterModeIs(filterModeInclude);
  EXPECT_THAT(reported(), ElementsAre("1000 changed 239.1.1.1 (version 3, include)",
                                      "1000 left 239.1.1.1 source 10.0.0.50"));
}

TEST_F(StatusWatcherTest, aSourceThatWentAndCameBackIsReportedInOrder) {
  const auto joined = joinVersion3(group, filterModeExclude);
  joined->sourceIs(sender);
  reported();
  joined->sourceDel(sender);
  joined->sourceIs(sender);
  EXPECT_THAT(reported(), ElementsAre("1000 left 239.1.1.1 source 10.0.0.50",
                                      "1000 joined 239.1.1.1 source 10.0.0.50"));
}

TEST_F(StatusWatcherTest, aWatcherThatComesLateReportsWhatIsThere) {
  joinVersion3(group, filterModeInclude)->sourceIs(sender);
  status_->stateIs(QuerierStatus::querierStateQuerier);
  EventRecorder late;
  StatusWatcher watcher("eth0", status_, late);
  watcher.flush();
  EXPECT_THAT(late.taken(), ElementsAre("1000 role querier",
                                        "1000 joined 239.1.1.1 by 10.0.0.11 (version 3, include)",
                                        "1000 joined 239.1.1.1 source 10.0.0.50"));
}

TEST_F(StatusWatcherTest, aWatcherThatIsGoneWatchesNothing) {
  const auto joined = joinVersion3(group, filterModeInclude);
  EventRecorder brief;
  { const StatusWatcher watcher("eth0", status_, brief); }
  joined->filterModeIs(filterModeExclude);
  EXPECT_THAT(brief.taken(), IsEmpty());
}

TEST_F(StatusWatcherTest, groupsAndSourcesHaveNoNotifieeOfTheirOwn) {
  const auto joined = joinVersion3(group, filterModeInclude);
  const auto source = joined->sourceIs(sender);
  watcher_.flush();
  EXPECT_EQ(joined->notifieeList().size(), 0u);
  EXPECT_EQ(source->notifieeList().size(), 0u);
  EXPECT_EQ(joined->refs(), 2u);
}

TEST_F(StatusWatcherTest, aGroupThatLeftIsReleasedByTheFlush) {
  const auto joined = joinVersion3(group, filterModeInclude);
  status_->groupDel(group);
  EXPECT_EQ(joined->refs(), 2u);
  watcher_.flush();
  EXPECT_EQ(joined->refs(), 1u);
}

TEST_F(StatusWatcherTest, aSourceThatExpiredBeforeItWentLeftOnce) {
  const auto joined = joinVersion3(group, filterModeInclude);
  joined->sourceIs(sender);
  reported();
  joined->source(sender)->expiredIs(true);
  EXPECT_THAT(reported(), ElementsAre("1000 left 239.1.1.1 source 10.0.0.50"));
  joined->sourceDel(sender);
  EXPECT_THAT(reported(), IsEmpty());
}

class ScopeTest : public StatusWatcherTest {
 protected:
  void addSources(unsigned count) {
    for (unsigned i = 0; i < count; ++i) joined_->sourceIs(IpAddr(0x0a000100u + i));
  }
  std::vector<std::string> reportedWith(EventScope scope, unsigned sources) {
    StatusWatcher watcher("eth0", status_, events_, nullptr, scope);
    watcher.flush();
    events_.taken();
    addSources(sources);
    watcher.flush();
    return events_.taken();
  }

  Ptr<QuerierGroupStatus> joined_ = joinVersion3(group, filterModeExclude);
};

TEST_F(ScopeTest, allReportsEachSource) {
  EXPECT_EQ(reportedWith(EventScope::all, 33).size(), 33u);
}

TEST_F(ScopeTest, changesReportsThirtyTwoSourcesEach) {
  EXPECT_EQ(reportedWith(EventScope::changes, 32).size(), 32u);
}

TEST_F(ScopeTest, changesSumsUpMoreThanThirtyTwoSourcesOfAGroup) {
  EXPECT_THAT(reportedWith(EventScope::changes, 33),
              ElementsAre("1000 changed 239.1.1.1 sources: 33 joined, 0 excluded, 0 left"));
}

TEST_F(ScopeTest, theSumCountsWhatEachSourceBecame) {
  addSources(40);
  StatusWatcher watcher("eth0", status_, events_, nullptr, EventScope::changes);
  watcher.flush();
  events_.taken();
  for (unsigned i = 0; i < 30; ++i) joined_->source(IpAddr(0x0a000100u + i))->expiredIs(true);
  for (unsigned i = 30; i < 40; ++i) joined_->sourceDel(IpAddr(0x0a000100u + i));
  joined_->sourceIs(sender);
  watcher.flush();
  EXPECT_THAT(events_.taken(),
              ElementsAre("1000 changed 239.1.1.1 sources: 1 joined, 30 excluded, 10 left"));
}

TEST_F(ScopeTest, noneReportsNeitherGroupsNorSourcesButRoles) {
  StatusWatcher watcher("eth0", status_, events_, nullptr, EventScope::none);
  watcher.flush();
  EXPECT_THAT(events_.taken(), IsEmpty());
  addSources(1);
  status_->groupDel(group);
  status_->stateIs(QuerierStatus::querierStateQuerier);
  watcher.flush();
  EXPECT_THAT(events_.taken(), ElementsAre("1000 role querier"));
}

class PendingWatchersTest : public StatusWatcherTest {
 protected:
  std::vector<std::string> flushed() {
    pending_.flush();
    return events_.taken();
  }

  StatusWatcher::Pending pending_;
  Ptr<QuerierStatus> firstStatus_ = Gmp::Igmp::querierStatusFactory();
  Ptr<QuerierStatus> secondStatus_ = Gmp::Igmp::querierStatusFactory();
  std::optional<StatusWatcher> first_{std::in_place, "eth1", firstStatus_, events_, &pending_};
  std::optional<StatusWatcher> second_{std::in_place, "eth2", secondStatus_, events_, &pending_};
};

TEST_F(PendingWatchersTest, areFlushedInTheOrderOfTheirFirstChanges) {
  EXPECT_THAT(flushed(), IsEmpty());
  secondStatus_->groupIs(group);
  firstStatus_->groupIs(group);
  secondStatus_->groupIs(other);
  pending_.flush();
  std::vector<std::string> interfaces;
  for (const Event& event : events_.events()) interfaces.push_back(event.interface);
  EXPECT_THAT(interfaces, ElementsAre("eth2", "eth2", "eth1"));
}

TEST_F(PendingWatchersTest, areThoseWithAnotherRoleOrQuerierToo) {
  flushed();
  firstStatus_->stateIs(QuerierStatus::querierStateQuerier);
  EXPECT_THAT(flushed(), ElementsAre("1000 role querier"));
  firstStatus_->electedQuerierAddrIs(host);
  EXPECT_THAT(flushed(), ElementsAre("1000 role querier (elected 10.0.0.11)"));
}

TEST_F(PendingWatchersTest, areThoseWithAnotherModeOrSource) {
  const auto joined = firstStatus_->groupIs(group);
  joined->filterModeIs(filterModeExclude);
  flushed();
  joined->filterModeIs(filterModeInclude);
  EXPECT_EQ(flushed().size(), 1u);
  joined->sourceIs(other);
  EXPECT_EQ(flushed().size(), 1u);
}

TEST_F(PendingWatchersTest, areFlushedOnce) {
  firstStatus_->groupIs(group);
  EXPECT_EQ(flushed().size(), 1u);
  EXPECT_THAT(flushed(), IsEmpty());
}

TEST_F(PendingWatchersTest, areFlushedEarlyOnceManyChangesWait) {
  flushed();
  const auto changed = [this](size_t changes) {
    for (size_t i = 0; i < changes; ++i) {
      firstStatus_->groupIs(IpAddr(239, 3, static_cast<Mox::U8>(i >> 8), static_cast<Mox::U8>(i)));
    }
    pending_.flushIfMany();
    return events_.taken().size();
  };
  const size_t most = StatusWatcher::Pending::mostChanges;
  EXPECT_EQ(changed(most - 1), 0u);
  EXPECT_EQ(changed(most), most);
  EXPECT_EQ(changed(most), 0u);  // all are there already
}

TEST_F(PendingWatchersTest, mayEndBeforeTheirFlush) {
  firstStatus_->groupIs(group);
  first_ = std::nullopt;
  secondStatus_->groupIs(group);
  EXPECT_EQ(flushed().size(), 1u);
}

}  // namespace
}  // namespace Agent
