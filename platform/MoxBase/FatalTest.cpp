#include <MoxBase/Fatal.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace Mox {
namespace {

void failsHere() { fatalUnless(1 + 1 == 3, "Some.tin", "1 + 1 == 3"); }

TEST(FatalDeathTest, namesModelFileFunctionAndExpression) {
  EXPECT_DEATH(failsHere(), "Some\\.tin:[0-9]+: .*failsHere.*Assertion '1 \\+ 1 == 3' failed");
}

TEST(FatalDeathTest, callsTheHookBeforeAborting) {
  auto abortsWithHook = [] {
    fatalHookIs([] { std::fputs("hook was here\n", stderr); });
    failsHere();
  };
  EXPECT_DEATH(abortsWithHook(), "hook was here");
}

// As of a terminal that is stopped: a process that waits for the end would wait for ever.
TEST(FatalDeathTest, doesNotWaitForStandardErrorThatTakesNothing) {
  auto failsWithFullPipe = [] {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0 || fcntl(ends[1], F_SETFL, O_NONBLOCK) != 0) std::_Exit(1);
    while (write(ends[1], "text", 4) > 0) {
    }
    fcntl(ends[1], F_SETFL, 0);
    dup2(ends[1], STDERR_FILENO);
    failsHere();
  };
  EXPECT_EXIT(failsWithFullPipe(), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace Mox
