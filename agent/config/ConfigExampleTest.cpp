#include <Config/ConfigExample.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <Config/Configuration.h>
#include <Settings/SettingEntities.h>
#include <Settings/SettingRules.h>
#include <Settings/SettingText.h>

namespace Agent {
namespace {

using testing::UnorderedElementsAreArray;

// Lines that are keys once their # is gone.
bool isKey(const std::string& line) {
  return line.size() > 1 && line[0] == '#' && line[1] != ' ' && line.find(" = ") != line.npos;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

Configuration read(const std::string& text) {
  const auto file = std::filesystem::temp_directory_path() /
                    ("ConfigExampleTest." + std::to_string(getpid()) + ".toml");
  std::ofstream(file) << text;
  const Configuration configuration = Configuration::read(file);
  std::filesystem::remove(file);
  return configuration;
}

TEST(ConfigExample, listsEveryKeyOnce) {
  std::vector<std::string> keys{"name", "boundary"};
  for (const AgentSetting& setting : agentSettings) keys.emplace_back(setting.name);
  for (const std::string_view name : settingNames()) keys.push_back(settingKey(name));
  std::vector<std::string> listed;
  for (const std::string& line : linesOf(configExample())) {
    if (isKey(line)) listed.push_back(line.substr(1, line.find(' ') - 1));
  }
  EXPECT_THAT(listed, UnorderedElementsAreArray(keys));
}

TEST(ConfigExample, changesNothingAsItIs) {
  const Configuration configuration = read(configExample());
  EXPECT_FALSE(configuration.namesInterfaces());
  EXPECT_TRUE(configuration.settingsOf("eth0").settings.empty());
}

TEST(ConfigExample, eachOfItsLinesCanBeUsed) {
  const std::vector<std::string> lines = linesOf(configExample());
  for (size_t used = 0; used < lines.size(); ++used) {
    if (!isKey(lines[used])) continue;
    std::string text;
    for (size_t i = 0; i < lines.size(); ++i) {
      const bool isSection = lines[used] == "#name = \"eth0\"" && lines[i] == "#[[interface]]";
      text += (i == used || isSection ? lines[i].substr(1) : lines[i]) + '\n';
    }
    EXPECT_NO_THROW(read(text)) << lines[used];
  }
}

// The line above the key.
std::string rangeOfKey(const std::string& key) {
  std::string before;
  for (const std::string& line : linesOf(configExample())) {
    if (line.starts_with("#" + key + " = ")) return before;
    before = line;
  }
  return {};
}

TEST(ConfigExample, eachKeyHasItsUnitAndRange) {
  for (const SettingRule& rule : settingRules) {
    const std::string key = settingKey(rule.attribute);
    const bool isTime = key.ends_with("interval");
    EXPECT_EQ(rangeOfKey(key).starts_with("# seconds, "), isTime) << rangeOfKey(key);
    const bool isFlag = rangeOfKey(key).starts_with("# true or false");
    EXPECT_TRUE(isFlag || rangeOfKey(key).find(fmt::to_string(rule.most)) != std::string::npos)
        << rangeOfKey(key);
  }
  EXPECT_EQ(rangeOfKey("stall-timeout"), "# seconds, from 1 to 86400");
  EXPECT_EQ(
      rangeOfKey("ring-size"),
      "# KiB, from 32 to 1048576; without it 4096 for up to 16 interfaces, else 65536 in all; "
      "read at the start only");
  EXPECT_EQ(rangeOfKey("socket"), "# a string, empty for the usual one");
  EXPECT_EQ(rangeOfKey("user"), "# a string, empty for none; read at the start only");
  EXPECT_EQ(rangeOfKey("events"),
            "# one of \"all\", \"changes\", \"none\"; read at the start only");
  EXPECT_EQ(rangeOfKey("max-groups"), "# a whole number from 1 to 16777216");
}

// The values that it shows are those that hold without them.
TEST(ConfigExample, itsValuesAreTheDefaults) {
  std::string text;
  for (const std::string& line : linesOf(configExample())) {
    const bool isOther = line.starts_with("#immediate-leave") || line.starts_with("#name");
    text += (isKey(line) && !isOther ? line.substr(1) : line) + '\n';
  }
  const Configuration configuration = read(text);
  const SettingEntities defaults{.config = Gmp::Igmp::querierConfigFactory(""),
                                 .intake = Mox::makePtr<IntakeConfig>(""),
                                 .process = Mox::makePtr<IntakeProcessConfig>()};
  std::vector<PlacedSetting> settings = configuration.settingsOf("eth0").settings;
  std::ranges::copy(configuration.process(), std::back_inserter(settings));
  EXPECT_EQ(settings.size() + 1, settingNames().size());  // without immediate-leave
  for (const PlacedSetting& setting : settings) {
    const Mox::AttrInfo& attr = *setting.written.attr;
    EXPECT_EQ(setting.written.value, attr.get(*defaults.ownerOf(attr))) << setting.key;
  }
}

}  // namespace
}  // namespace Agent
