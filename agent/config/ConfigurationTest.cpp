#include <Config/Configuration.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Settings/SettingText.h>

#include <AgentTestSupport/OtherIdentity.h>
#include "ConfigText.h"

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class ConfigurationTest : public testing::Test {
 protected:
  ConfigurationTest() { std::filesystem::create_directories(folder_ / "conf.d"); }
  ~ConfigurationTest() override { std::filesystem::remove_all(folder_); }

  void write(const std::string& name, std::string_view text) const {
    std::ofstream(folder_ / name, std::ios::binary) << text;
  }
  Configuration read(std::string_view text) const {
    write("igmpq.toml", text);
    return Configuration::read(folder_ / "igmpq.toml");
  }
  // Without the folder.
  std::vector<std::string> faultsOf(std::string_view text) const {
    std::vector<std::string> faults;
    try {
      read(text);
    } catch (const ConfigError& error) {
      for (const ConfigFault& fault : error.faults()) {
        const std::string place = placeText(fault.place);
        faults.push_back(place.substr(folder_.string().size() + 1) + ": " + fault.what);
      }
    }
    return faults;
  }
  static std::vector<std::string> textsOf(const Configuration& configuration,
                                          std::string_view interface) {
    std::vector<std::string> texts;
    for (const PlacedSetting& setting : configuration.settingsOf(interface).settings) {
      texts.push_back(setting.key + " " + setting.text);
    }
    return texts;
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("ConfigurationTest." + std::to_string(getpid()));
};

TEST_F(ConfigurationTest, anInterfaceHasTheDefaultsAndItsOwnSettings) {
  const Configuration configuration = read(
      "[defaults]\nquery-interval = 60\nrobustness = 3\n"
      "[[interface]]\nname = \"eth0\"\nrobustness = 4\nlisten-only = true\n"
      "last-member-query-interval = 0.5\npermitted-queriers = [\"10.0.0.1\", \"10.1.0.0/16\"]\n");
  EXPECT_THAT(
      textsOf(configuration, "eth0"),
      ElementsAre("query-interval 60", "robustness 4", "listen-only on",
                  "last-member-query-interval 0.5", "permitted-queriers 10.0.0.1,10.1.0.0/16"));
}

TEST_F(ConfigurationTest, aValueHasItsPlace) {
  const Configuration configuration = read("[[interface]]\nname = \"eth0\"\n  robustness =  4\n");
  const PlacedSetting setting = configuration.settingsOf("eth0").settings.at(0);
  EXPECT_THAT(placeText(setting.place), EndsWith("/igmpq.toml:3:17"));
}

TEST_F(ConfigurationTest, anExactNameWinsThenTheFirstPattern) {
  const Configuration configuration = read(
      "[[interface]]\nname = \"eth*\"\nrobustness = 3\n"
      "[[interface]]\nname = \"eth[01]\"\nrobustness = 4\n"
      "[[interface]]\nname = \"eth0\"\nrobustness = 5\n");
  EXPECT_THAT(textsOf(configuration, "eth0"), ElementsAre("robustness 5"));
  EXPECT_THAT(textsOf(configuration, "eth1"), ElementsAre("robustness 3"));
  EXPECT_THAT(textsOf(configuration, "wlan0"), IsEmpty());
}

TEST_F(ConfigurationTest, interfacesAreThoseNamedAndThoseThatAPatternMatches) {
  const Configuration configuration = read(
      "[[interface]]\nname = \"vlan*\"\n"
      "[[interface]]\nname = \"eth0\"\n"
      "[[interface]]\nname = \"nothing*\"\n");
  EXPECT_THAT(configuration.interfacesAmong({"eth0", "eth1", "vlan7", "vlan8"}),
              ElementsAre("vlan7", "vlan8", "eth0"));
  EXPECT_THAT(configuration.interfacesAmong({}), ElementsAre("eth0"));
}

TEST_F(ConfigurationTest, laterFilesReplaceDefaultsAndAddInterfaces) {
  write("conf.d/20-late.toml", "[defaults]\nrobustness = 5\n");
  write("conf.d/10-early.toml", "[defaults]\nrobustness = 4\n[[interface]]\nname = \"eth1\"\n");
  write("conf.d/30-ignored.txt", "this is no configuration");
  write("conf.d/.hidden.toml", "this is no configuration either");
  const Configuration configuration =
      read("[defaults]\nrobustness = 3\n[[interface]]\nname = \"eth0\"\n");
  EXPECT_THAT(textsOf(configuration, "eth1"), ElementsAre("robustness 5"));
  EXPECT_THAT(configuration.interfacesAmong({}), ElementsAre("eth0", "eth1"));
}

TEST_F(ConfigurationTest, theBoundaryOfAnInterfaceReplacesThatOfTheDefaults) {
  const Configuration configuration = read(
      "[defaults]\nboundary = [\"239.0.0.0/8\"]\n"
      "[[interface]]\nname = \"eth0\"\nboundary = [\"239.1.0.0/16\", \"239.2.0.0/16\"]\n");
  EXPECT_EQ(configuration.settingsOf("eth0").boundary->prefixes.size(), 2u);
  EXPECT_EQ(configuration.settingsOf("eth1").boundary->prefixes.size(), 1u);
}

TEST_F(ConfigurationTest, aBoundaryIsReplacedByAnEmptyOneAndByThatOfALaterFile) {
  write("conf.d/10.toml", "[defaults]\nboundary = [\"239.3.0.0/16\"]\n");
  const Configuration configuration = read(
      "[defaults]\nboundary = [\"239.0.0.0/8\"]\n"
      "[[interface]]\nname = \"eth0\"\nboundary = []\n");
  EXPECT_TRUE(configuration.settingsOf("eth0").boundary->prefixes.empty());
  EXPECT_EQ(configuration.settingsOf("eth1").boundary->prefixes,
            std::set{*Ilvo::IpGenPrefix::parse("239.3.0.0/16")});
}

TEST_F(ConfigurationTest, readsWhatConcernsTheWholeAgent) {
  const Configuration configuration = read(
      "[agent]\nsocket = \"/run/x.sock\"\nmax-readers = 7\nqueries = true\nevents = \"none\"\n"
      "stall-timeout = 2.5\nring-size = 64\nmax-process-groups = 100\n");
  EXPECT_EQ(configuration.agent().socket, "/run/x.sock");
  EXPECT_EQ(configuration.agent().maxReaders, 7u);
  EXPECT_TRUE(configuration.agent().queries);
  EXPECT_EQ(configuration.agent().events, "none");
  EXPECT_EQ(configuration.agent().stallTimeout, 2.5);
  EXPECT_EQ(configuration.agent().ringKib, 64u);
  ASSERT_EQ(configuration.process().size(), 1u);
  EXPECT_EQ(configuration.process()[0].text, "100");
}

TEST_F(ConfigurationTest, everySettingCanBeGiven) {
  for (const std::string_view attribute : settingNames()) {
    const std::string key = settingKey(attribute);
    const std::string section = key.starts_with("max-process") ? "[agent]\n" : "[defaults]\n";
    const auto isTaken = [&](const std::string& value) {
      return faultsOf(section + key + " = " + value + "\n").empty();
    };
    const bool takesNumber = isTaken("1") || isTaken("30");  // an interval of 1 is too short
    EXPECT_EQ(isTaken("true") + takesNumber + isTaken("[\"10.0.0.0/8\"]"), 1) << key;
  }
}

struct Bad {
  const char* name;
  const char* text;
  const char* fault;
};

class BadConfiguration : public ConfigurationTest, public testing::WithParamInterface<Bad> {};

INSTANTIATE_TEST_SUITE_P(
    , BadConfiguration,
    testing::Values(
        Bad{"syntax", "[defaults\n", "igmpq.toml:1:10: "},
        Bad{"nothingInBrackets", "# \xc3\xa4\n[[\n", "igmpq.toml:2:3: error while parsing: "},
        Bad{"stringWithoutEnd", "[agent]\nuser = \"\"\"x\ny\n", "igmpq.toml:3:2: "},
        Bad{"letterOutsideOfStrings", "[defaults]\nrobustness \xce\xa4 = 3\n", "igmpq.toml:2:12: "},
        Bad{"noUtf8", "[defaults]\nx = \"\xff\"\n", "igmpq.toml:2:5: "},
        Bad{"unknownSection", "[default]\n",
            "igmpq.toml:1:2: default is no section; there are [defaults], [[interface]] and "
            "[agent]"},
        Bad{"interfaceAsSection", "[interface]\nname = \"eth0\"\n",
            "igmpq.toml:1:2: interfaces are written as [[interface]], once for each"},
        Bad{"interfaceWithoutName", "[[interface]]\nrobustness = 2\n",
            "igmpq.toml:1:1: an interface needs a name or a pattern: name = \"eth0\""},
        Bad{"interfaceTwice", "[[interface]]\nname = \"a\"\n[[interface]]\nname = \"a\"\n",
            "igmpq.toml:4:8: a has a section already, at "},
        Bad{"unknownKey", "[defaults]\nqurey-interval = 60\n",
            "igmpq.toml:2:1: there is no key qurey-interval; is it query-interval?"},
        Bad{"unknownKeyLikeNone", "[agent]\nxyz = 60\n", "igmpq.toml:2:1: there is no key xyz"},
        Bad{"range", "[defaults]\nrobustness = 9\n",
            "igmpq.toml:2:14: robustness 9: must be from 1 to 7 (RFC 3376 8.1)"},
        Bad{"numberInQuotes", "[defaults]\nrobustness = \"2\"\n",
            "igmpq.toml:2:14: robustness must be a number, without quotes"},
        Bad{"flag", "[defaults]\nlisten-only = 1\n",
            "igmpq.toml:2:15: listen-only must be true or false"},
        Bad{"prefix", "[defaults]\npermitted-queriers = [\"10.0.0.0/33\"]\n",
            "igmpq.toml:2:22: permitted-queriers 10.0.0.0/33: "},
        Bad{"boundary", "[defaults]\nboundary = [\"x\"]\n",
            "igmpq.toml:2:12: boundary x: must be a prefix such as 239.0.0.0/8 or ff05::/16"},
        Bad{"listOfNumbers", "[defaults]\nboundary = [1]\n",
            "igmpq.toml:2:13: a list has strings only, such as [\"10.0.0.0/8\"]"},
        Bad{"date", "[defaults]\nrobustness = 2001-01-01\n",
            "igmpq.toml:2:14: robustness must be a flag, a number, a string or a list of strings"},
        Bad{"twoKeysOfOneValue",
            "[[interface]]\nname = \"a\"\nlast-member-query-count = 2\nimmediate-leave = true\n",
            "igmpq.toml:4:19: immediate-leave gives last-member-query-count a second value"},
        Bad{"ofTheAgent", "[defaults]\nmax-process-groups = 5\n",
            "igmpq.toml:2:1: max-process-groups belongs into [agent]"},
        Bad{"twoKeysOfOneDefault",
            "[defaults]\nlast-member-query-count = 5\nimmediate-leave = false\n",
            "igmpq.toml:3:19: immediate-leave gives last-member-query-count a second value"},
        Bad{"settingOfTheAgent", "[defaults]\nmax-readers = 5\n",
            "igmpq.toml:2:1: max-readers belongs into [agent]"},
        Bad{"boundaryOfTheAgent", "[agent]\nboundary = []\n",
            "igmpq.toml:2:1: boundary belongs into [defaults] or [[interface]]"},
        Bad{"nameInDefaults", "[defaults]\nname = \"eth0\"\n",
            "igmpq.toml:2:1: name belongs into [[interface]]"},
        Bad{"nameOfTheAgent", "[agent]\nname = \"eth0\"\n",
            "igmpq.toml:2:1: name belongs into [[interface]]"},
        Bad{"longName", "[[interface]]\nname = \"interface7890123456\"\n",
            "igmpq.toml:2:8: name interface7890123456: must have at most 15 bytes, without blanks, "
            "/ and :"},
        Bad{"nameWithSlash", "[[interface]]\nname = \"eth0/1\"\n",
            "igmpq.toml:2:8: name eth0/1: must have"},
        Bad{"nameWithBlank", "[[interface]]\nname = \"eth 0\"\n", "igmpq.toml:2:8: name eth 0: "},
        Bad{"nameOfFolder", "[[interface]]\nname = \"..\"\n", "igmpq.toml:2:8: name ..: "},
        Bad{"ofAnInterface", "[agent]\nrobustness = 2\n",
            "igmpq.toml:2:1: robustness belongs into [defaults] or [[interface]]"},
        Bad{"choice", "[agent]\nevents = \"some\"\n",
            "igmpq.toml:2:10: events some: must be one of all, changes, none"},
        Bad{"noSuchUser", "[agent]\nuser = \"no such user\"\n",
            "igmpq.toml:2:8: user no such user: there is no user of that name"},
        Bad{"noSuchGroup", "[agent]\nread-group = \"no such group\"\n",
            "igmpq.toml:2:14: read-group no such group: there is no group of that name"},
        Bad{"allCannotConfigure", "[agent]\nconfigure-group = \"all\"\n",
            "igmpq.toml:2:19: configure-group all: there is no group of that name"},
        Bad{"loopback", "[[interface]]\nname = \"lo\"\n",
            "igmpq.toml:2:8: lo is the loopback interface: it has no link"},
        Bad{"contradiction", "[defaults]\nquery-interval = 5\n",
            "igmpq.toml:2:18: query-interval 5: must be more than the query response interval, 10 "
            "seconds (RFC 3376 8.3)"},
        Bad{"contradictionOfDefaultAndInterface",
            "[defaults]\nquery-response-interval = 50\n"
            "[[interface]]\nname = \"a\"\nquery-interval = 20\n",
            "igmpq.toml:2:27: query-response-interval 50: must be less than the query interval, 20 "
            "seconds (RFC 3376 8.3)"}),
    [](const auto& made) { return made.param.name; });

TEST_P(BadConfiguration, isRefusedWithItsPlace) {
  EXPECT_THAT(faultsOf(GetParam().text), ElementsAre(testing::StartsWith(GetParam().fault)));
}

TEST_F(ConfigurationTest, aNameMayBeAsLongAsTheKernelPermits) {
  EXPECT_THAT(faultsOf("[[interface]]\nname = \"interface789012\"\n"), IsEmpty());
  EXPECT_THAT(faultsOf("[[interface]]\nname = \"v[0-9][0-9][0-9][0-9]*\"\n"), IsEmpty());
}

TEST_F(ConfigurationTest, allFaultsOfContentAreReported) {
  EXPECT_EQ(faultsOf("[defaults]\nrobustness = 9\n[agent]\nevents = \"x\"\n[nothing]\n").size(),
            3u);
}

TEST_F(ConfigurationTest, allContradictionsOfASectionAreReported) {
  EXPECT_THAT(faultsOf("[[interface]]\nname = \"a\"\nquery-interval = 5\n"
                       "last-member-query-interval = 60\n"),
              ElementsAre(testing::StartsWith("igmpq.toml:3:18: query-interval 5: must be more"),
                          testing::StartsWith("igmpq.toml:4:30: last-member-query-interval 60: "
                                              "must be from")));
}

TEST_F(ConfigurationTest, accountsOfThisMachineCanBeNamed) {
  const AgentSettings agent =
      read("[agent]\nuser = \"root\"\nread-group = \"all\"\nconfigure-group = \"root\"\n").agent();
  EXPECT_EQ(agent.user, "root");
  EXPECT_EQ(agent.readGroup, "all");
  EXPECT_EQ(agent.configureGroup, "root");
}

// Each part is a table within a table.
TEST_F(ConfigurationTest, aKeyHasABoundedNumberOfParts) {
  const auto keyOf = [](size_t parts) {
    std::string key = "[";
    for (size_t i = 1; i < parts; ++i) key += "a.";
    return key + "a]\n";
  };
  EXPECT_THAT(faultsOf(keyOf(1000)), ElementsAre(testing::StartsWith("igmpq.toml:1:2: a is no")));
  EXPECT_THAT(faultsOf(keyOf(500000)), ElementsAre("igmpq.toml:1:2003: a key has too many parts"));
}

TEST_F(ConfigurationTest, anEmptyFileNamesNoInterface) {
  EXPECT_FALSE(read("").namesInterfaces());
  EXPECT_TRUE(read("[[interface]]\nname = \"eth0\"\n").namesInterfaces());
}

TEST_F(ConfigurationTest, whatIsNoFileOfSettingsIsRefused) {
  const auto why = [](const std::filesystem::path& path) {
    try {
      Configuration::read(path);
    } catch (const ConfigError& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  EXPECT_THAT(why(folder_ / "missing.toml"), HasSubstr("No such file"));
  EXPECT_THAT(why(folder_ / "conf.d"), EndsWith("is no regular file"));
  ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  EXPECT_THAT(why(folder_ / "pipe"), EndsWith("is no regular file"));
  write("long.toml", std::string(mostConfigBytes, '#') + "#");
  EXPECT_THAT(why(folder_ / "long.toml"), EndsWith("is longer than 1048576 bytes"));
}

TEST_F(ConfigurationTest, allFilesTogetherAreAsLongAsOneMayBe) {
  const std::string half(mostConfigBytes / 2, '#');
  write("conf.d/10.toml", half);
  EXPECT_THAT(faultsOf(half), IsEmpty());
  EXPECT_THAT(faultsOf(half + '#'),
              ElementsAre("conf.d/10.toml: is too long: all files together have more than 1048576 "
                          "bytes"));
}

TEST_F(ConfigurationTest, noMoreThanAHundredFaultsAreLookedFor) {
  std::string text = "[defaults]\n";
  for (int i = 0; i < 100; ++i) text += "unknown" + std::to_string(i) + " = 1\n";
  EXPECT_THAT(faultsOf(text), SizeIs(100));
  text += "other = 1\nanother = 1\n";
  EXPECT_THAT(faultsOf(text), SizeIs(101));
  EXPECT_THAT(faultsOf(text).back(), EndsWith("more faults from here on are not listed"));
}

// The process may have become another user since it read them first.
TEST_F(ConfigurationTest, whatThisUserCannotReadIsAFaultWithTheRemedy) {
  write("igmpq.toml", "[[interface]]\nname = \"eth0\"\n");
  std::filesystem::create_directory(folder_ / "conf.d");
  const auto why = [&] {
    const OtherIdentity other;
    if (!other.isTaken()) return std::string("not root");
    try {
      Configuration::read(folder_ / "igmpq.toml");
    } catch (const ConfigError& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  if (why() == "not root") GTEST_SKIP() << "only root can become another user";
  EXPECT_EQ(why(), "");
  chmod((folder_ / "conf.d").c_str(), 0700);
  EXPECT_THAT(why(), HasSubstr("conf.d: Permission denied: this process runs as user nobody"));
  chmod((folder_ / "conf.d").c_str(), 0755);
  chmod((folder_ / "igmpq.toml").c_str(), 0600);
  EXPECT_THAT(why(), HasSubstr("igmpq.toml: Permission denied"));
  EXPECT_THAT(why(), HasSubstr("`chown` it to that user, or `chgrp` and `chmod g+r` it"));
}

TEST_F(ConfigurationTest, aFaultInAFileBesideItRefusesTheWhole) {
  write("conf.d/10.toml", "[defaults]\nrobustness = 8\n");
  EXPECT_THAT(faultsOf("[[interface]]\nname = \"eth0\"\n"),
              ElementsAre(testing::StartsWith("conf.d/10.toml:2:14: robustness 8: ")));
}

}  // namespace
}  // namespace Agent
