#include <Scenario/Scenario.h>

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace Agent {
namespace {

class ScenarioTest : public testing::Test {
 protected:
  ~ScenarioTest() override { std::remove(path_.c_str()); }

  // Runs a querier for that long, with general queries 10 seconds apart; gives the error line.
  std::string errorOfRun(const std::string& until, size_t turnsMost) {
    std::ofstream(path_) << R"({"at": 1000, "op": "interface", "name": "vlan10",)"
                         << R"( "ipAddr": "10.0.0.5", "config": {"queryInterval": 10}})"
                         << "\n{\"at\": " << until << ", \"op\": \"advance\"}\n";
    const ScenarioOptions options{.file = path_, .turnsMost = turnsMost};
    std::FILE* output = std::tmpfile();
    std::FILE* errors = std::tmpfile();
    exit_ = runScenario(options, output, errors);
    std::rewind(errors);
    char line[200] = "";
    if (std::fgets(line, sizeof line, errors) == nullptr) line[0] = '\0';
    std::fclose(output);
    std::fclose(errors);
    return line;
  }

  const std::string path_ = testing::TempDir() + "scenario." + std::to_string(getpid());
  ScenarioExit exit_ = scenarioOk;
};

TEST_F(ScenarioTest, aRunThatTurnsItsWheelTooOftenEnds) {
  EXPECT_EQ(errorOfRun("2000", 1000), "");
  EXPECT_EQ(exit_, scenarioOk);
  const std::string error = errorOfRun("1e9", 1000);
  EXPECT_EQ(error.find("timers never settle at "), 0u) << error;
  EXPECT_EQ(exit_, scenarioNeverSettles);
}

}  // namespace
}  // namespace Agent
