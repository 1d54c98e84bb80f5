#include "ConfigPlan.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <AgentTestSupport/TempFolder.h>

namespace Agent {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

// An agent of the interfaces eth0 and eth1, whose file changes.
class ConfigPlanTest : public testing::Test {
 protected:
  ConfigPlanTest() { startWith(""); }

  ConfiguredAgent configured(const std::string& text,
                             const std::vector<std::string>& names = {"eth0", "eth1"}) const {
    const std::filesystem::path path = folder_.path() + "/igmpq.toml";
    std::ofstream(path) << text;
    const Configuration files = Configuration::read(path);
    return configuredAgent(&files, {}, names);
  }
  void startWith(const std::string& text) {
    current_ = configured(text);
    process_ = Mox::makePtr<IntakeProcessConfig>();
    copySettings(*current_.values.process, *process_);
    for (const auto& [name, interface] : current_.interfaces) {
      present_[name] = {.config = Gmp::Igmp::querierConfigFactory(name),
                        .intake = Mox::makePtr<IntakeConfig>(name),
                        .process = process_};
      copySettings(*interface.values.config, *present_[name].config);
      copySettings(*interface.values.intake, *present_[name].intake);
    }
  }
  ConfigPlan plan(ConfiguredAgent next) const {
    return configPlan(current_, std::move(next),
                      {.entitiesOf =
                           [this](const std::string& name) {
                             const auto found = present_.find(name);
                             if (found != present_.end()) return found->second;
                             return SettingEntities{
                                 .config = {}, .intake = {}, .process = process_};
                           },
                       .canServeElsewhere = canServeElsewhere_});
  }
  ConfigPlan planFor(const std::string& text) const { return plan(configured(text)); }
  // In words, without the folder.
  std::vector<std::string> changesFor(const std::string& text) const {
    std::vector<std::string> texts;
    for (const ConfigChange& change : planFor(text).changes) {
      std::string line = changeText(change);
      const size_t at = line.find(folder_.path());
      if (at != line.npos) line.erase(at, folder_.path().size() + 1);
      texts.push_back(std::move(line));
    }
    return texts;
  }
  std::string faultOf(const std::string& text) const {
    try {
      planFor(text);
    } catch (const ConfigError& error) {
      return std::string(error.what()).substr(folder_.path().size() + 1);
    }
    return {};
  }
  std::string originOf(const std::string& interface, const std::string& setting) const {
    for (const ShownSetting& each :
         shownSettings(current_.interfaces.at(interface), present_.at(interface))) {
      if (each.name == setting) return each.origin;
    }
    return "there is no such setting";
  }

  const TempFolder folder_;
  ConfiguredAgent current_;
  Mox::Ptr<IntakeProcessConfig> process_;
  std::map<std::string, SettingEntities> present_;
  bool canServeElsewhere_ = true;
};

TEST_F(ConfigPlanTest, theSameFileChangesNothing) {
  const char* const text = "[defaults]\nrobustness = 3\nboundary = [\"239.0.0.0/8\"]\n";
  startWith(text);
  const ConfigPlan same = planFor(text);
  EXPECT_THAT(same.changes, IsEmpty());
  EXPECT_THAT(same.changed, IsEmpty());
  EXPECT_THAT(same.process, IsEmpty());
}

TEST_F(ConfigPlanTest, onlyInterfacesWhoseValuesDifferAreChanged) {
  startWith("[defaults]\nrobustness = 3\n");
  // The same value on another line is the same value.
  const std::string text =
      "[[interface]]\nname = \"eth0\"\nrobustness = 3\n[[interface]]\nname = "
      "\"eth1\"\nrobustness = 4\nmax-groups = 9\n";
  const ConfigPlan changes = planFor(text);
  EXPECT_THAT(changes.changed, ElementsAre(Field(&ConfigPlan::Interface::name, "eth1")));
  EXPECT_THAT(changes.changed[0].querier, testing::SizeIs(1));
  EXPECT_THAT(changes.changed[0].intake, testing::SizeIs(1));
  EXPECT_THAT(changesFor(text), ElementsAre("eth1 robustness 4 (was 3), igmpq.toml:6",
                                            "eth1 max-groups 9 (was 65536), igmpq.toml:7"));
}

TEST_F(ConfigPlanTest, aKeyThatIsTakenAwayGivesTheDefaultBack) {
  startWith("[defaults]\nquery-interval = 60\n");
  EXPECT_THAT(changesFor(""), ElementsAre("eth0 query-interval 125s (was 60s), default",
                                          "eth1 query-interval 125s (was 60s), default"));
}

TEST_F(ConfigPlanTest, aValueSetAtRunTimeStaysWhereTheFileSaysTheSame) {
  startWith("[defaults]\nrobustness = 3\n");
  present_["eth0"].config->robustnessIs(5);
  EXPECT_THAT(changesFor("[defaults]\nrobustness = 3\nstartup-query-count = 4\n"),
              ElementsAre("eth0 startup-query-count 4 (was 2), igmpq.toml:3",
                          "eth1 startup-query-count 4 (was 2), igmpq.toml:3"));
  EXPECT_EQ(originOf("eth0", "robustness"), "set at run time");
}

TEST_F(ConfigPlanTest, aValueSetAtRunTimeGoesWhereTheFileSaysAnother) {
  startWith("[defaults]\nrobustness = 3\n");
  present_["eth0"].config->robustnessIs(5);
  EXPECT_THAT(changesFor("[defaults]\nrobustness = 4\n"),
              ElementsAre("eth0 robustness 4 (was 5), igmpq.toml:2",
                          "eth1 robustness 4 (was 3), igmpq.toml:2"));
}

TEST_F(ConfigPlanTest, aValueThatTheFileCatchesUpWithIsNoChange) {
  startWith("[defaults]\nrobustness = 3\n");
  present_["eth0"].config->robustnessIs(4);
  EXPECT_THAT(changesFor("[[interface]]\nname = \"eth0\"\nrobustness = 4\n"
                         "[[interface]]\nname = \"eth1\"\nrobustness = 3\n"),
              IsEmpty());
}

TEST_F(ConfigPlanTest, aValueThatContradictsOneSetAtRunTimeIsAFault) {
  present_["eth1"].config->queryResponseIntervalIs(100.0);
  EXPECT_EQ(faultOf("[defaults]\nquery-interval = 60\n"),
            "igmpq.toml:2:18: query-interval 60 on eth1: must be more than the query response "
            "interval, 100 seconds (RFC 3376 8.3); a value that it contradicts was set at run "
            "time");
}

TEST_F(ConfigPlanTest, interfacesComeAndGo) {
  const ConfigPlan next = plan(configured("", {"eth2", "eth0"}));
  EXPECT_THAT(next.added, ElementsAre("eth2"));
  EXPECT_THAT(next.removed, ElementsAre("eth1"));
  EXPECT_THAT(next.after.names, ElementsAre("eth2", "eth0"));
}

TEST_F(ConfigPlanTest, aBoundaryChangesByItsPrefixesAlone) {
  startWith("[defaults]\nboundary = [\"239.0.0.0/8\", \"232.0.0.0/8\"]\n");
  EXPECT_THAT(changesFor("[defaults]\nboundary = [\"232.0.0.0/8\", \"239.1.2.3/8\"]\n"), IsEmpty());
  EXPECT_THAT(changesFor("[[interface]]\nname = \"eth0\"\nboundary = []\n[[interface]]\nname = "
                         "\"eth1\"\nboundary = [\"239.0.0.0/8\", \"232.0.0.0/8\"]\n"),
              ElementsAre("eth0 boundary none (was 232.0.0.0/8,239.0.0.0/8), igmpq.toml:3"));
}

TEST_F(ConfigPlanTest, settingsThatNeedARestartAreNamedUntilThen) {
  const char* const text = "[agent]\nring-size = 64\nmax-readers = 8\nuser = \"nobody\"\n";
  const std::vector<std::string> restart{
      "agent user stays this one until a restart; nobody, igmpq.toml:4",
      "agent ring-size stays 4096 for up to 16 interfaces, else 65536 in all until a restart; 64, "
      "igmpq.toml:2"};
  EXPECT_THAT(changesFor(text),
              ElementsAre(restart[0], "agent max-readers 8 (was 64), igmpq.toml:3", restart[1]));
  current_ = planFor(text).after;
  EXPECT_EQ(current_.agent.user, "");
  EXPECT_EQ(current_.agent.maxReaders, 8u);
  EXPECT_THAT(changesFor(text), ElementsAre(restart[0], restart[1]));
}

TEST_F(ConfigPlanTest, theSocketNeedsARestartWhereNoneIsServed) {
  const char* const text = "[agent]\nsocket = \"/x.sock\"\n";
  EXPECT_EQ(planFor(text).changes.at(0).kind, ConfigChange::changed);
  canServeElsewhere_ = false;
  EXPECT_EQ(planFor(text).changes.at(0).kind, ConfigChange::needsRestart);
  EXPECT_EQ(planFor(text).after.agent.socket, "");
}

TEST_F(ConfigPlanTest, limitsOfAllInterfacesChangeOnce) {
  const char* const text = "[agent]\nmax-process-groups = 100\n";
  EXPECT_THAT(changesFor(text),
              ElementsAre("agent max-process-groups 100 (was 1048576), igmpq.toml:2"));
  EXPECT_THAT(planFor(text).process, testing::SizeIs(1));
}

TEST_F(ConfigPlanTest, settingsAreShownWithTheirForms) {
  startWith("[defaults]\nquery-interval = 60\n[agent]\nstall-timeout = 2.5\n");
  const auto shown = [](const char* key, const Mox::Value& value, const char* text) {
    return Contains(AllOf(Field(&ShownSetting::key, key), Field(&ShownSetting::value, value),
                          Field(&ShownSetting::text, text)));
  };
  const auto interface = shownSettings(current_.interfaces.at("eth0"), present_.at("eth0"));
  EXPECT_THAT(interface, shown("queryIntervalSeconds", 60.0, "60s"));
  EXPECT_THAT(interface, shown("lastMemberQueryTimeSeconds", 2.0, "2s"));
  EXPECT_THAT(interface, shown("sendQuery", true, "on"));
  EXPECT_THAT(interface, shown("permittedQueriers", std::string("all"), "all"));
  EXPECT_THAT(interface, shown("boundary", std::string("none"), "none"));
  const auto agent = shownSettings(current_, present_.at("eth0"));
  EXPECT_THAT(agent, shown("stallTimeoutSeconds", 2.5, "2.5s"));
  EXPECT_THAT(agent, shown("maxReaders", Mox::U64{64}, "64"));
  EXPECT_THAT(agent, shown("queries", false, "off"));
  EXPECT_THAT(agent,
              shown("ringSize", Mox::Value(), "4096 for up to 16 interfaces, else 65536 in all"));
  EXPECT_THAT(agent, shown("maxProcessGroups", Mox::U64{1048576}, "1048576"));
}

TEST_F(ConfigPlanTest, aValueThatFollowsFromOthersHasNoOrigin) {
  EXPECT_EQ(originOf("eth0", "lastMemberQueryTime"), "");
  EXPECT_EQ(originOf("eth0", "lastMemberQueryCount"), "default");
}

}  // namespace
}  // namespace Agent
