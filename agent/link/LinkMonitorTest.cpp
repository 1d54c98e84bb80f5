#include <Link/LinkMonitor.h>

#include <fstream>
#include <sstream>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <unistd.h>
#include <boost/asio/io_context.hpp>

namespace Agent {
namespace {

// Every network namespace has this one, whatever else the machine has.
TEST(CurrentLinks, holdTheLoopbackInterface) {
  const LinkTable table = currentLinks();
  const Link* const lo = table.find("lo");
  ASSERT_NE(lo, nullptr);
  EXPECT_EQ(lo->index, 1u);
  EXPECT_TRUE(lo->loopback);
}

TEST(LinkMonitor, knowsTheLinksFromTheBeginning) {
  boost::asio::io_context io;
  const LinkMonitor monitor(io, [](const std::string&, const Link*) {});
  EXPECT_NE(monitor.links().find("lo"), nullptr);
}

TEST(LinkMonitor, mayEndBeforeItsLoop) {
  boost::asio::io_context io;
  bool notified = false;
  {
    const LinkMonitor monitor(io, [&](const std::string&, const Link*) { notified = true; });
  }
  io.run();  // returns, as nothing waits any more
  EXPECT_FALSE(notified);
}

// In a network namespace of its own, where addresses can be changed faster than they are read.
class LinkOverrunTest : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "not permitted to make a network namespace";
    mnl_.reset(mnl_socket_open(NETLINK_ROUTE));
    ASSERT_EQ(mnl_socket_bind(mnl_.get(), 0, MNL_SOCKET_AUTOPID), 0);
  }
  ~LinkOverrunTest() override {
    setns(before_, CLONE_NEWNET);
    close(before_);
  }

  // Adds 127.1.0.N/8 to the loopback interface, or removes it.
  void addressIs(unsigned number, bool there) {
    alignas(nlmsghdr) std::byte buffer[256] = {};
    nlmsghdr* const message = mnl_nlmsg_put_header(buffer);
    message->nlmsg_type = there ? RTM_NEWADDR : RTM_DELADDR;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | (there ? NLM_F_CREATE : 0);
    auto& info = *static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifaddrmsg)));
    info.ifa_family = AF_INET;
    info.ifa_prefixlen = 8;
    info.ifa_index = 1;
    mnl_attr_put_u32(message, IFA_LOCAL, htonl(0x7f010000U + number));
    ASSERT_GT(mnl_socket_sendto(mnl_.get(), message, message->nlmsg_len), 0);
    std::byte answer[1024];
    const ssize_t got = mnl_socket_recvfrom(mnl_.get(), answer, sizeof answer);
    ASSERT_GT(got, 0);
    const auto* const error = static_cast<const nlmsgerr*>(
        mnl_nlmsg_get_payload(reinterpret_cast<const nlmsghdr*>(answer)));
    ASSERT_EQ(error->error, 0) << "address " << number;
  }
  // Messages that the kernel could not deliver to a socket of this process.
  static unsigned long messagesLost() {
    std::ifstream table("/proc/self/net/netlink");
    std::string line;
    std::getline(table, line);
    unsigned long lost = 0;
    while (std::getline(table, line)) {
      std::istringstream fields(line);
      std::string skipped;
      unsigned long drops = 0;
      for (int column = 0; column < 8; ++column) fields >> skipped;
      fields >> drops;
      lost += drops;
    }
    return lost;
  }

  const int before_ = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  NetlinkSocket mnl_{nullptr, &mnl_socket_close};
};

TEST_F(LinkOverrunTest, allLinksAreAskedForAgainWhenMessagesWereLost) {
  boost::asio::io_context io;
  const LinkMonitor monitor(io, [](const std::string&, const Link*) {});
  for (int change = 0; change < 100'000 && messagesLost() == 0; ++change) {
    addressIs(1, true);
    addressIs(1, false);
  }
  ASSERT_GT(messagesLost(), 0u);
  addressIs(200, true);
  io.poll();
  const Link* const lo = monitor.links().find("lo");
  ASSERT_NE(lo, nullptr);
  ASSERT_EQ(lo->addresses.size(), 1u);
  EXPECT_EQ(lo->addresses.front().address, Ilvo::IpAddr(127, 1, 0, 200));
}

}  // namespace
}  // namespace Agent
