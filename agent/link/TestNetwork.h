// For tests: a network namespace of this process's own with the interfaces eth0 (10.9.0.1) and
// peer0, the two ends of a cable. Tests are skipped where it cannot be made; that takes root and
// iproute2.
#pragma once

#include <sched.h>
#include <cstdlib>
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
};

}  // namespace Agent
