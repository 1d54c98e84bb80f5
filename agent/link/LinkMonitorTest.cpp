#include <Link/LinkMonitor.h>

#include <array>
#include <fstream>
#include <set>
#include <sstream>

#include <Mox/ActivityClock.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <boost/asio/io_context.hpp>

#include "RtnetlinkMessages.h"
#include "TestNetwork.h"

namespace Agent {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

// Every network namespace has this one, whatever else the machine has.
TEST(CurrentLinks, holdTheLoopbackInterface) {
  const LinkTable table = currentLinks();
  const Link* const lo = table.find("lo");
  ASSERT_NE(lo, nullptr);
  EXPECT_EQ(lo->index, 1u);
  EXPECT_TRUE(lo->loopback);
}

TEST(CurrentLinks, areAskedForAgainWhenChangesInterruptTheAnswer) {
  int asked = 0;
  const LinkTable table = currentLinks([&]() -> std::optional<LinkTable> {
    if (++asked < 3) return {};
    return LinkTable();
  });
  EXPECT_EQ(asked, 3);
}

TEST(CurrentLinks, areNotTakenFromAnswersThatMayLackSome) {
  EXPECT_THROW(currentLinks([]() -> std::optional<LinkTable> { return {}; }), std::system_error);
}

// With virtual time for its wheel.
class LinkMonitorTest : public TestNetwork {
 protected:
  LinkMonitorTest() { Mox::virtualTimeIs(1000.0); }
  ~LinkMonitorTest() override { Mox::realTimeIs(); }

  void begin(const LinkDump& dump = dumpedLinks) {
    monitor_ = std::make_unique<LinkMonitor>(
        io_, wheel_,
        [this](const auto& name, const Link* link) {
          changes_.push_back((link == nullptr ? "no " : link->up ? "up " : "down ") + name);
        },
        dump);
  }
  // Handles the messages that have arrived, without waiting for more.
  void poll() {
    io_.restart();
    io_.poll();
  }
  std::vector<std::string> changes() { return std::exchange(changes_, {}); }
  // More messages than the socket's buffer holds.
  void overrun() {
    std::ostringstream toggles;
    for (int i = 0; i < 400; ++i) toggles << "link set peer0 mtu " << 1000 + i % 2 << "\n";
    ip("-batch - <<'END'\n" + toggles.str() + "END\n");
  }

  boost::asio::io_context io_{1};
  const Mox::Ptr<Obel::TimerWheel> wheel_ = Mox::makePtr<Obel::TimerWheel>(1000.0);
  std::vector<std::string> changes_;
  std::unique_ptr<LinkMonitor> monitor_;
};

TEST_F(LinkMonitorTest, knowsTheLinksFromTheBeginning) {
  begin();
  EXPECT_NE(monitor_->links().find("eth0"), nullptr);
  poll();
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(LinkMonitorTest, beginsWithoutLinksWhenTheAnswerIsNotWholeAndAsksAgain) {
  bool isInterrupted = true;
  begin([&] { return isInterrupted ? std::nullopt : dumpedLinks(); });
  EXPECT_FALSE(monitor_->isWhole());
  EXPECT_EQ(monitor_->links().find("eth0"), nullptr);
  isInterrupted = false;
  Mox::virtualTimeIs(1001.0);
  wheel_->turn(1001.0);
  EXPECT_TRUE(monitor_->isWhole());
  EXPECT_THAT(changes(), UnorderedElementsAre("up eth0", "up peer0", "down lo"));
}

// Packets and timers have their turn in between.
TEST_F(LinkMonitorTest, asksOnceInATurnUntilItWaitsForASecond) {
  int dumps = 0;
  begin([&]() -> std::optional<LinkTable> {
    ++dumps;
    return std::nullopt;
  });
  dumps = 0;
  Mox::virtualTimeIs(1001.0);
  for (int turn = 1; turn <= 10; ++turn) {
    wheel_->turn(1001.0);
    EXPECT_EQ(dumps, turn);
  }
  wheel_->turn(1001.5);
  EXPECT_EQ(dumps, 10);
  Mox::virtualTimeIs(1002.0);
  wheel_->turn(1002.0);
  EXPECT_EQ(dumps, 11);
}

TEST_F(LinkMonitorTest, keepsItsLinksWhenALaterAnswerIsInterrupted) {
  bool isInterrupted = false;
  begin([&] { return isInterrupted ? std::nullopt : dumpedLinks(); });
  isInterrupted = true;
  overrun();
  poll();
  changes();
  ip("link set peer0 down");
  EXPECT_NE(monitor_->links().find("eth0"), nullptr);
  poll();
  EXPECT_THAT(changes(), Not(Contains("no eth0")));
}

TEST_F(LinkMonitorTest, mayEndBeforeItsLoop) {
  begin();
  monitor_ = nullptr;
  io_.run();  // returns: nothing is waited for any more
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(LinkMonitorTest, notifiesOfChangesByName) {
  begin();
  ASSERT_TRUE(ip("link set peer0 down"));
  ASSERT_TRUE(ip("link set peer0 name other0"));
  ASSERT_TRUE(ip("link add name new0 type bridge"));
  poll();
  const std::vector<std::string> all = changes();
  EXPECT_THAT(all, Contains("no peer0"));
  EXPECT_THAT(all, Contains("down other0"));
  EXPECT_THAT(all, Contains("down new0"));
  EXPECT_EQ(monitor_->links().find("peer0"), nullptr);
}

TEST_F(LinkMonitorTest, doesNotNotifyOfWhatIsAsItWas) {
  begin();
  ASSERT_TRUE(ip("link set peer0 mtu 1400"));
  ASSERT_TRUE(ip("link set peer0 mtu 1500"));
  poll();
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(LinkMonitorTest, asksForAllLinksAgainWhenMessagesWereLost) {
  begin();
  overrun();
  ASSERT_TRUE(ip("link add name late0 type bridge"));
  ASSERT_TRUE(ip("link del eth0"));
  poll();
  EXPECT_NE(monitor_->links().find("late0"), nullptr);
  EXPECT_EQ(monitor_->links().find("eth0"), nullptr);
  EXPECT_THAT(changes(), testing::IsSupersetOf({"no eth0", "no peer0", "down late0"}));
}

// Without a descriptor the kernel cannot be asked.
TEST_F(LinkMonitorTest, asksAgainAfterASecondWhenItCouldNot) {
  begin();
  overrun();
  ASSERT_TRUE(ip("link del eth0"));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{.rlim_cur = 3, .rlim_max = before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  poll();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_NE(monitor_->links().find("eth0"), nullptr);
  wheel_->turn(1000.9);
  EXPECT_NE(monitor_->links().find("eth0"), nullptr);
  wheel_->turn(1001.1);
  EXPECT_EQ(monitor_->links().find("eth0"), nullptr);
  EXPECT_THAT(changes(), Contains("no eth0"));
}

// The netlink sockets of this process that watch links, as the kernel lists them.
std::vector<unsigned> watchingPorts() {
  std::ifstream sockets("/proc/self/net/netlink");
  std::vector<unsigned> ports;
  std::string line;
  std::getline(sockets, line);
  while (std::getline(sockets, line)) {
    std::istringstream words(line);
    std::string address;
    unsigned protocol = 0;
    unsigned port = 0;
    std::string groups;
    words >> address >> protocol >> port >> groups;
    if (protocol == NETLINK_ROUTE && port != 0 && std::stoul(groups, nullptr, 16) != 0) {
      ports.push_back(port);
    }
  }
  return ports;
}

TEST_F(LinkMonitorTest, ignoresMessagesOfOtherProcesses) {
  begin();
  const std::vector<unsigned> ports = watchingPorts();
  ASSERT_EQ(ports.size(), 1u);
  const Datagram forged = linkMessage({.index = 77, .name = "forged0"});
  const Descriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl to{};
  to.nl_family = AF_NETLINK;
  to.nl_pid = ports[0];
  ASSERT_EQ(sendto(socket.fd(), forged.data(), forged.size(), 0,
                   reinterpret_cast<const sockaddr*>(&to), sizeof(to)),
            static_cast<ssize_t>(forged.size()));
  ASSERT_TRUE(ip("link set peer0 down"));
  poll();
  EXPECT_EQ(monitor_->links().find("forged0"), nullptr);
  EXPECT_THAT(changes(), Contains("down peer0"));
}

}  // namespace
}  // namespace Agent
