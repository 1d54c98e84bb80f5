#include <Local/MachineIdentity.h>

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace Agent {
namespace {

TEST(MachineIdentity, bootIsTheOneThatTheKernelNamesWithoutTheEndOfLine) {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  EXPECT_EQ(bootId().size(), 36u);
  EXPECT_EQ(bootId() + "\n", text);
}

TEST(MachineIdentity, machineIsTheOneOfItsFileOrNone) {
  std::ifstream file("/etc/machine-id");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  EXPECT_EQ(machineId() + (text.empty() ? "" : "\n"), text);
}

}  // namespace
}  // namespace Agent
