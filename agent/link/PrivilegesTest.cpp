#include <Link/Privileges.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

namespace Agent {
namespace {

constexpr const char* netRawOnly = "0000000000002000";
constexpr const char* none = "0000000000000000";

// The lines of /proc/self/status, in a process that cannot be used for anything else afterwards.
class PrivilegesTest : public testing::Test {
 protected:
  using Status = std::map<std::string, std::string>;

  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root has rights that could be dropped";
  }
  static Status status() {
    std::ifstream in("/proc/self/status");
    Status lines;
    for (std::string key, rest; in >> key && std::getline(in >> std::ws, rest);) lines[key] = rest;
    return lines;
  }
  // Whether each line is as given; prints the others.
  static bool isStatus(const Status& wanted) {
    const Status there = status();
    bool isAsWanted = true;
    for (const auto& [key, value] : wanted) {
      if (there.at(key) == value) continue;
      std::fprintf(stderr, "%s %s, not %s\n", key.c_str(), there.at(key).c_str(), value.c_str());
      isAsWanted = false;
    }
    return isAsWanted;
  }
  template <class Check>
  static void inAProcess(Check check) {
    EXPECT_EXIT(_exit(check() ? 0 : 1), testing::ExitedWithCode(0), "");
  }
};

TEST_F(PrivilegesTest, rootKeepsTheRightToPacketsAndItsUser) {
  inAProcess([] {
    keepPacketRightOnly({});
    return isStatus({{"CapPrm:", netRawOnly},
                     {"CapEff:", netRawOnly},
                     {"CapBnd:", netRawOnly},
                     {"CapInh:", none},
                     {"CapAmb:", none},
                     {"NoNewPrivs:", "1"},
                     {"Uid:", "0\t0\t0\t0"}}) &&
           missingPrivilege().empty();
  });
}

TEST_F(PrivilegesTest, anotherUserHasItsOwnGroupsAndTheRightToPackets) {
  inAProcess([] {
    keepPacketRightOnly(User{.name = "test", .id = 4001, .group = 4002, .groups = {4002, 4003}});
    return isStatus({{"CapPrm:", netRawOnly},
                     {"CapEff:", netRawOnly},
                     {"CapBnd:", netRawOnly},
                     {"CapInh:", none},
                     {"CapAmb:", none},
                     {"NoNewPrivs:", "1"},
                     {"Uid:", "4001\t4001\t4001\t4001"},
                     {"Gid:", "4002\t4002\t4002\t4002"},
                     {"Groups:", "4002 4003 "}}) &&
           missingPrivilege().empty() && setuid(0) != 0;
  });
}

// As for a program with file capabilities that an ordinary user executes.
TEST_F(PrivilegesTest, canBeCalledAgainWithTheOneRight) {
  inAProcess([] {
    keepPacketRightOnly(User{.name = "test", .id = 4001, .group = 4002, .groups = {4002}});
    keepPacketRightOnly({});
    return isStatus({{"CapPrm:", netRawOnly}, {"CapEff:", netRawOnly}}) &&
           missingPrivilege().empty();
  });
}

TEST_F(PrivilegesTest, programWithoutPacketsKeepsNone) {
  inAProcess([] {
    keepNoRight();
    return isStatus({{"CapPrm:", none},
                     {"CapEff:", none},
                     {"CapBnd:", none},
                     {"CapInh:", none},
                     {"CapAmb:", none},
                     {"NoNewPrivs:", "1"},
                     {"Uid:", "0\t0\t0\t0"}}) &&
           !missingPrivilege().empty();
  });
}

TEST_F(PrivilegesTest, whatTheKernelRefusesIsAnError) {
  inAProcess([] {
    keepPacketRightOnly(User{.name = "test", .id = 4001, .group = 4002, .groups = {4002}});
    try {
      keepPacketRightOnly(User{.name = "other", .id = 4005, .group = 4006, .groups = {}});
    } catch (const std::runtime_error& error) {
      return error.what() == std::string("cannot become the user other: Operation not permitted");
    }
    return false;
  });
}

}  // namespace
}  // namespace Agent
