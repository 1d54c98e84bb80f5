// For tests: a network namespace of this process's own with the interfaces eth0 (10.9.0.1) and
// peer0, the two ends of a cable, both with a carrier. Tests are skipped where it cannot be made; that takes root and
// iproute2.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <Link/LinkMonitor.h>
#include <Link/LinkTable.h>

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
    awaitCarriers();
  }

  static bool ip(const std::string& words) {
    return std::system(("ip " + words + " >/dev/null 2>&1").c_str()) == 0;
  }
  static Link link(const std::string& name) {
    const LinkTable table = currentLinks();
    const Link* const found = table.find(name);
    if (found == nullptr) throw std::logic_error("there is no " + name);
    return *found;
  }

 private:
  // The kernel notices a carrier in its own time, and that is a change like any other.
  static void awaitCarriers() {
    const NetlinkSocket changes(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), &mnl_socket_close);
    ASSERT_TRUE(changes != nullptr);
    ASSERT_EQ(mnl_socket_bind(changes.get(), RTMGRP_LINK, MNL_SOCKET_AUTOPID), 0);
    while (!link("eth0").running || !link("peer0").running) {
      pollfd readable{.fd = mnl_socket_get_fd(changes.get()), .events = POLLIN, .revents = 0};
      ASSERT_EQ(poll(&readable, 1, 60000), 1);  // a minute is for machines that are stuck
      std::array<std::byte, 32768> message;
      ASSERT_GT(mnl_socket_recvfrom(changes.get(), message.data(), message.size()), 0);
    }
  }
};

}  // namespace Agent
