#include <Service/ServiceManager.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <AgentTestSupport/DatagramReceiver.h>
#include <AgentTestSupport/TempFolder.h>
#include <Mox/ActivityClock.h>

namespace Agent {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Mox::Seconds begin = 1000.0;

class ServiceManagerTest : public testing::Test {
 protected:
  ServiceManagerTest() { Mox::virtualTimeIs(begin); }
  ~ServiceManagerTest() override { Mox::realTimeIs(); }

  ServiceManager managerOf(Mox::Seconds watchdog = Mox::never) {
    return {wheel_, {.socket = path_, .watchdog = watchdog}, [this] { return status_; }};
  }
  void runFor(Mox::Seconds duration) {
    const Mox::Seconds end = Mox::now() + duration;
    while (wheel_->nextDue() <= end) {
      Mox::virtualTimeIs(wheel_->nextDue());
      wheel_->turn(Mox::now());
    }
    Mox::virtualTimeIs(end);
  }

  const TempFolder folder_;
  const std::string path_ = folder_.path() + "/socket";
  DatagramReceiver receiver_{path_};
  std::string status_ = "1 interface";
  const Mox::Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(begin);
};

TEST_F(ServiceManagerTest, isNotifiedThatTheAgentIsReadyWithItsStatus) {
  ServiceManager manager = managerOf();
  EXPECT_THAT(receiver_.all(), IsEmpty());
  manager.stateIs(ServiceManager::ready);
  EXPECT_THAT(receiver_.all(), ElementsAre("READY=1\nSTATUS=1 interface\n"));
}

TEST_F(ServiceManagerTest, isNotifiedOfANewStatusWithinASecond) {
  ServiceManager manager = managerOf();
  manager.stateIs(ServiceManager::ready);
  status_ = "2 interfaces";
  receiver_.all();
  runFor(1.0);
  EXPECT_THAT(receiver_.all(), ElementsAre("STATUS=2 interfaces\n"));
}

TEST_F(ServiceManagerTest, isNotNotifiedWhileNothingChanges) {
  ServiceManager manager = managerOf();
  manager.stateIs(ServiceManager::ready);
  receiver_.all();
  runFor(3600.0);
  EXPECT_THAT(receiver_.all(), IsEmpty());
}

// With the time at which it began, by which a manager knows that its own request is meant.
TEST_F(ServiceManagerTest, isNotifiedOfTheTimeAtWhichTheConfigurationIsReadAgain) {
  ServiceManager manager = managerOf();
  manager.stateIs(ServiceManager::ready);
  Mox::virtualTimeIs(1234.567891);
  receiver_.all();
  manager.stateIs(ServiceManager::reloading);
  manager.stateIs(ServiceManager::ready);
  EXPECT_THAT(receiver_.all(),
              ElementsAre("RELOADING=1\nMONOTONIC_USEC=1234567891\n", "READY=1\n"));
}

TEST_F(ServiceManagerTest, isNotifiedThatTheAgentStopsWithoutAStatus) {
  ServiceManager manager = managerOf();
  manager.stateIs(ServiceManager::ready);
  receiver_.all();
  status_ = "none";
  manager.stateIs(ServiceManager::stopping);
  EXPECT_THAT(receiver_.all(), ElementsAre("STOPPING=1\n"));
}

TEST_F(ServiceManagerTest, isNotifiedTwiceInTheTimeOfItsWatchdog) {
  ServiceManager manager = managerOf(30.0);
  manager.stateIs(ServiceManager::ready);
  EXPECT_THAT(receiver_.all(), ElementsAre(HasSubstr("WATCHDOG=1\n")));
  runFor(120.0);
  const std::vector<std::string> messages = receiver_.all();
  EXPECT_THAT(messages, SizeIs(8));
  EXPECT_THAT(messages, Each("WATCHDOG=1\n"));
}

TEST_F(ServiceManagerTest, aWatchdogOfLessThanASecondIsFedInTime) {
  ServiceManager manager = managerOf(0.5);
  manager.stateIs(ServiceManager::ready);
  receiver_.all();
  runFor(2.0);
  EXPECT_THAT(receiver_.all(), SizeIs(8));
}

// A loop that hangs turns no wheel.
TEST_F(ServiceManagerTest, isNotNotifiedByALoopThatHangs) {
  ServiceManager manager = managerOf(30.0);
  manager.stateIs(ServiceManager::ready);
  receiver_.all();
  Mox::virtualTimeIs(begin + 300.0);
  EXPECT_THAT(receiver_.all(), IsEmpty());
}

TEST_F(ServiceManagerTest, getsLaterWhatItDoesNotTakeNow) {
  DatagramSender other(path_);
  while (other.send("x") == DatagramSender::sent) {
  }
  ServiceManager manager = managerOf(30.0);
  manager.stateIs(ServiceManager::ready);
  EXPECT_THAT(receiver_.all(), Each("x"));
  runFor(1.0);
  EXPECT_THAT(receiver_.all(), ElementsAre("READY=1\nSTATUS=1 interface\nWATCHDOG=1\n"));
}

TEST_F(ServiceManagerTest, thereMayBeNone) {
  ServiceManager manager(wheel_, {}, [] { return std::string("none"); });
  manager.stateIs(ServiceManager::ready);
  EXPECT_EQ(wheel_->nextDue(), Mox::never);
}

struct WatchdogCase {
  const char* name;
  const char* microseconds;
  std::string pid;
  Mox::Seconds watchdog;
};

class WatchdogVariablesTest : public testing::TestWithParam<WatchdogCase> {
 protected:
  ~WatchdogVariablesTest() override {
    for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) unsetenv(name);
  }
};

TEST_P(WatchdogVariablesTest, setTheTime) {
  setenv("NOTIFY_SOCKET", "/run/notify", 1);
  setenv("WATCHDOG_USEC", GetParam().microseconds, 1);
  if (!GetParam().pid.empty()) setenv("WATCHDOG_PID", GetParam().pid.c_str(), 1);
  const ServiceManager::Setup setup = ServiceManager::fromEnvironment();
  EXPECT_EQ(setup.socket, "/run/notify");
  EXPECT_EQ(setup.watchdog, GetParam().watchdog);
}

INSTANTIATE_TEST_SUITE_P(
    Environment, WatchdogVariablesTest,
    testing::Values(WatchdogCase{"forAnyProcess", "30000000", "", 30.0},
                    WatchdogCase{"forThisProcess", "500000", std::to_string(getpid()), 0.5},
                    WatchdogCase{"forAnotherProcess", "30000000", "1", Mox::never},
                    WatchdogCase{"zero", "0", "", Mox::never},
                    WatchdogCase{"noNumber", "30s", "", Mox::never}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(ServiceManagerEnvironment, namesNoManagerUsually) {
  const ServiceManager::Setup setup = ServiceManager::fromEnvironment();
  EXPECT_EQ(setup.socket, "");
  EXPECT_EQ(setup.watchdog, Mox::never);
}

}  // namespace
}  // namespace Agent
