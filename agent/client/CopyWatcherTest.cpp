#include <Client/CopyWatcher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Mox/ActivityClock.h>

#include <AgentTestSupport/EventRecorder.h>
#include <AgentTestSupport/TestAddresses.h>

namespace Agent {
namespace {

using Gmp::Igmp::QuerierStatus;
using Ilvo::IpAddr;
using testing::ElementsAre;
using testing::IsEmpty;

class CopyWatcherTest : public testing::Test {
 protected:
  CopyWatcherTest() { Mox::virtualTimeIs(1000.0); }
  ~CopyWatcherTest() override { Mox::realTimeIs(); }

  QuerierStatus& interfaceIs(const std::string& name) {
    copies_[name] = {.config = Gmp::Igmp::querierConfigFactory(name),
                     .status = Gmp::Igmp::querierStatusFactory()};
    return *copies_[name].status;
  }
  void join(QuerierStatus& status) {
    const auto joined = status.groupIs(group);
    joined->lastReporterIs(IpAddr(10, 0, 0, 11));
    joined->compatibilityModeIs(Gmp::Igmp::igmpVersion2);
    joined->filterModeIs(Gmp::Igmp::filterModeExclude);
  }
  std::vector<std::string> reported() {
    watcher_->flush();
    return events_.taken();
  }

  EventRecorder events_;
  AttrLogCopy::Interfaces copies_;
  std::unique_ptr<CopyWatcher> watcher_ =
      std::make_unique<CopyWatcher>(copies_, CopyWatcher::Options(), events_);
};

TEST_F(CopyWatcherTest, ofTheStateAtTheBeginningOnlyRolesAreReported) {
  QuerierStatus& status = interfaceIs("eth0");
  join(status);
  status.stateIs(QuerierStatus::querierStateQuerier);
  status.electedQuerierAddrIs(IpAddr(10, 0, 0, 1));
  copies_["eth0"].config->robustnessIs(3);
  EXPECT_THAT(reported(), ElementsAre("1000 role querier (elected 10.0.0.1)"));
  status.groupDel(group);
  EXPECT_THAT(reported(), ElementsAre("1000 left 239.1.1.1"));
}

TEST_F(CopyWatcherTest, reportsAllOfItOnRequest) {
  watcher_ = std::make_unique<CopyWatcher>(copies_, CopyWatcher::Options{.fromTheBeginning = true},
                                           events_);
  join(interfaceIs("eth0"));
  EXPECT_THAT(reported(), ElementsAre("1000 joined 239.1.1.1 by 10.0.0.11 (version 2)"));
}

TEST_F(CopyWatcherTest, reportsChangesOfTheConfiguration) {
  interfaceIs("eth0");
  reported();
  copies_["eth0"].config->queryIntervalIs(60.0);
  copies_["eth0"].config->sendQueryIs(false);
  copies_["eth0"].config->robustnessIs(3);
  copies_["eth0"].config->robustnessIs(2);
  EXPECT_THAT(reported(),
              ElementsAre("1000 configured queryInterval 60s", "1000 configured sendQuery off"));
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(CopyWatcherTest, reportsCountersOnlyWhenAskedForThem) {
  QuerierStatus& status = interfaceIs("eth0");
  status.joinsIs(7);
  reported();
  status.joinsInc(1);
  status.v2ReportReceivedInc(2);
  EXPECT_THAT(reported(), IsEmpty());
  watcher_->flushCounters();
  EXPECT_THAT(events_.taken(), ElementsAre("1000 counters joins 8, v2ReportReceived 2"));
  watcher_->flushCounters();
  EXPECT_THAT(events_.taken(), IsEmpty());
}

TEST_F(CopyWatcherTest, reportsSettingsAndCountersOfTheIntakeAndOfThePort) {
  interfaceIs("eth0");
  AttrLogCopy::Interface& copy = copies_["eth0"];
  copy.intake = Mox::makePtr<IntakeConfig>("eth0");
  copy.intakeStatus = Mox::makePtr<IntakeStatus>("eth0");
  copy.state = Mox::makePtr<InterfaceState>("eth0");
  reported();
  copy.intake->maxGroupsIs(7);
  EXPECT_TRUE(watcher_->changed());
  EXPECT_THAT(reported(), ElementsAre("1000 configured maxGroups 7"));
  copy.intakeStatus->countedInc(IntakeRule::groupLimit, 2);
  copy.state->framesLostInc(3);
  watcher_->flushCounters();
  EXPECT_THAT(events_.taken(), ElementsAre("1000 counters framesLost 3, groupLimit 2"));
}

TEST_F(CopyWatcherTest, knowsWhetherAnythingChangedSinceTheLastFlush) {
  QuerierStatus& status = interfaceIs("eth0");
  EXPECT_TRUE(watcher_->changed());
  reported();
  EXPECT_FALSE(watcher_->changed());
  join(status);
  EXPECT_TRUE(watcher_->changed());
  reported();
  status.group(group)->sourceIs(IpAddr(10, 0, 0, 5));
  EXPECT_TRUE(watcher_->changed());
  reported();
  status.group(group)->source(IpAddr(10, 0, 0, 5))->expiredIs(true);
  EXPECT_TRUE(watcher_->changed());
  reported();
  copies_["eth0"].config->robustnessIs(3);
  EXPECT_TRUE(watcher_->changed());
}

TEST_F(CopyWatcherTest, reportsAQuerierThatStopsAndRunsAgain) {
  interfaceIs("eth0");
  const auto state = Mox::makePtr<InterfaceState>("eth0");
  state->addressIs(IpAddr(10, 0, 0, 1));
  state->runningIs(true);
  copies_["eth0"].state = state;
  EXPECT_THAT(reported(), IsEmpty());
  state->runningIs(false);
  EXPECT_TRUE(watcher_->changed());
  EXPECT_THAT(reported(), ElementsAre("1000 interface down, address 10.0.0.1"));
  state->addressIs(IpAddr(10, 0, 0, 2));
  EXPECT_THAT(reported(), IsEmpty());
  state->runningIs(true);
  EXPECT_THAT(reported(), ElementsAre("1000 interface up, address 10.0.0.2"));
  state->addressIs(IpAddr(10, 0, 0, 3));
  EXPECT_THAT(reported(), ElementsAre("1000 address changed, address 10.0.0.3"));
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(CopyWatcherTest, followsInterfacesThatComeAndGo) {
  interfaceIs("eth0");
  reported();
  join(interfaceIs("eth1"));
  EXPECT_TRUE(watcher_->changed());
  EXPECT_THAT(reported(), ElementsAre("1000 joined 239.1.1.1 by 10.0.0.11 (version 2)"));
  copies_.erase("eth0");
  EXPECT_TRUE(watcher_->changed());
  EXPECT_THAT(reported(), ElementsAre("1000 interface gone"));
  EXPECT_FALSE(watcher_->changed());
}

// The agent gave up an interface and took up another one of the same name between two flushes.
TEST_F(CopyWatcherTest, interfaceOfTheSameNameIsAnotherOne) {
  QuerierStatus& before = interfaceIs("eth0");
  join(before);
  reported();
  const Mox::Ptr<QuerierStatus> kept = copies_["eth0"].status;
  QuerierStatus& after = interfaceIs("eth0");
  EXPECT_TRUE(watcher_->changed());
  after.groupIs(IpAddr(239, 1, 1, 2));
  EXPECT_THAT(reported(), ElementsAre("1000 interface gone",
                                      "1000 joined 239.1.1.2 by 0.0.0.0 (version 3, include)"));
  EXPECT_FALSE(watcher_->changed());
  kept->groupDel(group);
  EXPECT_THAT(reported(), IsEmpty());
}

TEST_F(CopyWatcherTest, reportsOnlyTheInterfacesAskedFor) {
  watcher_ = std::make_unique<CopyWatcher>(
      copies_, CopyWatcher::Options{.interfaces = {"eth1"}, .fromTheBeginning = true}, events_);
  join(interfaceIs("eth0"));
  EXPECT_THAT(reported(), IsEmpty());
  EXPECT_FALSE(watcher_->changed());
  join(interfaceIs("eth1"));
  reported();
  ASSERT_EQ(events_.events().size(), 1u);
  EXPECT_EQ(events_.events()[0].interface, "eth1");
}

}  // namespace
}  // namespace Agent
