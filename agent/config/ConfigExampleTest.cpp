#include <Config/ConfigExample.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <Config/Configuration.h>
#include <Settings/SettingEntities.h>
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
