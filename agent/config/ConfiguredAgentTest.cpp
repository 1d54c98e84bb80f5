#include <Config/ConfiguredAgent.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Settings/SettingText.h>

#include <AgentTestSupport/TempFolder.h>

namespace Agent {
namespace {

using testing::ElementsAre;

class ConfiguredAgentTest : public testing::Test {
 protected:
  void fileIs(const std::string& text) {
    const std::filesystem::path path = folder_.path() + "/igmpq.toml";
    std::ofstream(path) << text;
    files_ = Configuration::read(path);
  }
  void give(std::string_view attribute, std::string_view text) {
    given_.settings.push_back(readSetting(attribute, attribute, text));
  }
  void giveOfAgent(std::string_view key, const std::string& text) {
    given_.agent.emplace_back(agentSetting(key), text);
  }
  ConfiguredAgent agent(const std::vector<std::string>& names = {"eth0"}) const {
    return configuredAgent(files_ ? &*files_ : nullptr, given_, names);
  }
  // Without the folder.
  std::vector<std::string> faultsOf(const std::vector<std::string>& names) const {
    std::vector<std::string> faults;
    try {
      agent(names);
    } catch (const ConfigError& error) {
      for (const ConfigFault& fault : error.faults()) {
        const std::string place = placeText(fault.place);
        faults.push_back(place.substr(place.rfind('/') + 1) + ": " + fault.what);
      }
    }
    return faults;
  }
  static std::string originIn(const SettingOrigins& origins, std::string_view setting) {
    const std::string text = originText(originOf(origins, setting));
    return text.substr(text.rfind('/') + 1);
  }

  const TempFolder folder_;
  std::optional<Configuration> files_;
  GivenSettings given_;
};

TEST_F(ConfiguredAgentTest, theCommandLineWinsOverTheSectionAndThatOverTheDefaults) {
  fileIs(
      "[defaults]\nrobustness = 3\nquery-interval = 60\nmax-groups = 7\n"
      "[[interface]]\nname = \"eth0\"\nquery-interval = 70\nmax-groups = 8\n");
  give("maxGroups", "9");
  const ConfiguredAgent all = agent();
  const ConfiguredInterface& eth0 = all.interfaces.at("eth0");
  EXPECT_EQ(eth0.values.config->robustness(), 3u);
  EXPECT_EQ(eth0.values.config->queryInterval(), 70.0);
  EXPECT_EQ(eth0.values.intake->maxGroups(), 9u);
  EXPECT_EQ(originIn(eth0.origins, "robustness"), "igmpq.toml:2");
  EXPECT_EQ(originIn(eth0.origins, "queryInterval"), "igmpq.toml:7");
  EXPECT_EQ(originIn(eth0.origins, "maxGroups"), "command line");
  EXPECT_EQ(originIn(eth0.origins, "sendQuery"), "default");
}

TEST_F(ConfiguredAgentTest, withoutAFileThereIsTheCommandLine) {
  give("robustness", "4");
  const ConfiguredAgent all = agent({"eth1", "eth0"});
  EXPECT_THAT(all.names, ElementsAre("eth1", "eth0"));
  EXPECT_EQ(all.interfaces.at("eth1").values.config->robustness(), 4u);
  EXPECT_EQ(all.interfaces.at("eth0").values.config->name(), Mox::Name("eth0"));
}

TEST_F(ConfiguredAgentTest, aBoundaryOfTheCommandLineReplacesThatOfTheFile) {
  const auto inFile = *Ilvo::IpGenPrefix::parse("239.0.0.0/8");
  const auto onLine = *Ilvo::IpGenPrefix::parse("239.1.0.0/16");
  fileIs("[defaults]\nboundary = [\"239.0.0.0/8\"]\n");
  EXPECT_THAT(agent().interfaces.at("eth0").boundary, ElementsAre(inFile));
  EXPECT_EQ(originIn(agent().interfaces.at("eth0").origins, boundaryKey), "igmpq.toml:2");
  given_.boundary = {onLine};
  EXPECT_THAT(agent().interfaces.at("eth0").boundary, ElementsAre(onLine));
  EXPECT_EQ(originIn(agent().interfaces.at("eth0").origins, boundaryKey), "command line");
}

TEST_F(ConfiguredAgentTest, settingsOfTheAgentHaveOriginsAsWell) {
  fileIs("[agent]\nmax-readers = 7\nevent-rate = 5\nmax-process-groups = 100\n");
  giveOfAgent("event-rate", "6");
  give("maxProcessSources", "200");
  const ConfiguredAgent all = agent();
  EXPECT_EQ(all.agent.maxReaders, 7u);
  EXPECT_EQ(all.agent.eventRate, 6u);
  EXPECT_EQ(all.values.process->maxProcessGroups(), 100u);
  EXPECT_EQ(all.values.process->maxProcessSources(), 200u);
  EXPECT_EQ(originIn(all.origins, "max-readers"), "igmpq.toml:2");
  EXPECT_EQ(originIn(all.origins, "event-rate"), "command line");
  EXPECT_EQ(originIn(all.origins, "maxProcessGroups"), "igmpq.toml:4");
  EXPECT_EQ(originIn(all.origins, "maxProcessSources"), "command line");
  EXPECT_EQ(originIn(all.origins, "stall-timeout"), "default");
}

TEST_F(ConfiguredAgentTest, valuesOfTheFileAndTheCommandLineMustNotContradictEachOther) {
  fileIs("[defaults]\nquery-interval = 60\n");
  give("queryResponseInterval", "60");
  EXPECT_THAT(faultsOf({"eth0"}),
              ElementsAre("command line: query-response-interval 60 on eth0: must be less than the "
                          "query interval, 60 seconds (RFC 3376 8.3)"));
}

TEST_F(ConfiguredAgentTest, oneLineIsOneFaultForAllOfItsInterfaces) {
  fileIs("[defaults]\nlast-member-query-interval = 26\nquerier-version = 3\n");
  give("querierVersion", "2");
  EXPECT_THAT(faultsOf({"eth0", "eth1"}),
              ElementsAre("igmpq.toml:2:30: last-member-query-interval 26 on eth0: must be from "
                          "0.1 to 25.5 in version 2 (RFC 2236 2.2)"));
}

TEST(SettingOrigin, isALineOfAFileOrAWordForTheRest) {
  const ConfigPlace place{.file = "a.toml", .line = 3, .column = 7};
  EXPECT_EQ(originText({.from = SettingOrigin::file, .place = place}), "a.toml:3");
  EXPECT_EQ(originText({.from = SettingOrigin::byDefault}), "default");
  EXPECT_EQ(originText({.from = SettingOrigin::commandLine}), "command line");
  EXPECT_EQ(originText({.from = SettingOrigin::runTime}), "set at run time");
}

}  // namespace
}  // namespace Agent
