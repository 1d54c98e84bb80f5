#include <MoxBase/Fatal.h>

#include <cstdio>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace Mox
