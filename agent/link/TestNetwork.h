// For tests: a network namespace of this process's own with the interfaces eth0 (10.9.0.1) and
// peer0, the two ends of a cable, both with a carrier. Tests are skipped where it cannot be made;
// that takes root and iproute2.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Link/LinkMonitor.h>
#include <Link/LinkTable.h>
#include <Local/Descriptor.h>

namespace Agent {

class TestNetwork : public testing::Test {
 protected:
  void SetUp() override {
    if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespaces here";
    if (!ip("link add name eth0 address 02:00:00:00:00:01 type veth peer name peer0 "
            "address 02:00:00:00:00:02")) {
      GTEST_SKIP() << "no interfaces can be made here";
    }
    ASSERT_TRUE(ip("address add 10.9.0.1/24 dev eth0"));
    ASSERT_TRUE(ip("link set eth0 up"));
    ASSERT_TRUE(ip("link set peer0 up"));
    awaitCarriers({"eth0", "peer0"});
  }

  static bool run(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
  }
  static bool ip(const std::string& words) { return run("ip " + words); }
  static Link link(const std::string& name) {
    const LinkTable table = currentLinks();
    const Link* const found = table.find(name);
    if (found == nullptr) throw std::logic_error("there is no " + name);
    return *found;
  }
  // Through the other end of the cable.
  static void sendFrame(const std::vector<Mox::U8>& frame, int times = 1) {
    const Descriptor socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(link("peer0").index);
    for (int i = 0; i < times; ++i) {
      ASSERT_EQ(sendto(socket.fd(), frame.data(), frame.size(), 0,
                       reinterpret_cast<const sockaddr*>(&to), sizeof(to)),
                static_cast<ssize_t>(frame.size()));
    }
  }

  // The kernel notices a carrier in its own time, and that is a change like any other.
  static void awaitCarriers(const std::vector<std::string>& names) {
    const NetlinkSocket changes(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), &mnl_socket_close);
    ASSERT_TRUE(changes != nullptr);
    ASSERT_EQ(mnl_socket_bind(changes.get(), RTMGRP_LINK, MNL_SOCKET_AUTOPID), 0);
    for (const std::string& name : names) {
      while (!link(name).running) {
        pollfd readable{.fd = mnl_socket_get_fd(changes.get()), .events = POLLIN, .revents = 0};
        ASSERT_EQ(poll(&readable, 1, 60000), 1);  // a minute is for machines that are stuck
        std::array<std::byte, 32768> message;
        ASSERT_GT(mnl_socket_recvfrom(changes.get(), message.data(), message.size()), 0);
      }
    }
  }
};

}  // namespace Agent
