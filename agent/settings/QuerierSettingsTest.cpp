#include <Settings/QuerierSettings.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <Settings/SettingError.h>

namespace Agent {
namespace {

using Gmp::Igmp::querierConfigFactory;

std::string errorOf(const std::function<void(QuerierSettings&)>& use) {
  QuerierSettings settings;
  try {
    use(settings);
  } catch (const SettingError& error) {
    return error.what();
  }
  return {};
}

TEST(QuerierSettings, setWhatWasAddedAndTheDefaultsOfTheOthers) {
  const auto config = querierConfigFactory("eth0");
  config->robustnessIs(7);
  QuerierSettings settings;
  settings.add("queryInterval", "60.5");
  settings.add("sendQuery", "off");
  settings.apply({.config = config, .intake = {}, .process = {}});
  EXPECT_EQ(config->queryInterval(), 60.5);
  EXPECT_FALSE(config->sendQuery());
  EXPECT_EQ(config->robustness(), 2u);
}

TEST(QuerierSettings, errorsNameTheOption) {
  EXPECT_EQ(errorOf([](QuerierSettings& s) { s.add("robustness", "9"); }),
            "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)");
  EXPECT_EQ(errorOf([](QuerierSettings& s) { s.add("sendQuery", "yes"); }),
            "--send-query yes: must be on or off");
  EXPECT_EQ(errorOf([](QuerierSettings& s) { s.boundaryAdd("239.0.0.0/33"); }),
            "--boundary 239.0.0.0/33: must be a prefix such as 239.0.0.0/8 or ff05::/16");
}

TEST(QuerierSettings, contradictionsAreFoundOnceAllAreThere) {
  EXPECT_EQ(errorOf([](QuerierSettings& s) {
              s.add("queryInterval", "5");
              s.add("queryResponseInterval", "2");
              s.check();
            }),
            "");
  EXPECT_EQ(errorOf([](QuerierSettings& s) {
              s.add("queryInterval", "5");
              s.check();
            }),
            "--query-interval 5: must be more than the query response interval, 10 seconds (RFC "
            "3376 8.3)");
}

TEST(QuerierSettings, reachTheIntakeOfTheInterfaceAndThatOfTheProcess) {
  const auto intake = Mox::makePtr<IntakeConfig>("eth0");
  const auto process = Mox::makePtr<IntakeProcessConfig>();
  intake->maxSourcesIs(7);
  QuerierSettings settings;
  settings.add("maxGroups", "1000");
  settings.add("acceptedGroups", "239.0.0.0/8");
  settings.add("maxProcessGroups", "2000");
  settings.apply({.config = {}, .intake = intake, .process = process});
  EXPECT_EQ(intake->maxGroups(), 1000u);
  EXPECT_EQ(intake->maxSources(), 262144u);
  EXPECT_EQ(intake->acceptedGroups(), PrefixList("239.0.0.0/8"));
  EXPECT_EQ(process->maxProcessGroups(), 2000u);
}

TEST(QuerierSettings, immediateLeaveIsACountOfZero) {
  const auto config = querierConfigFactory("eth0");
  QuerierSettings settings;
  settings.add("immediateLeave", "on");
  settings.apply({.config = config, .intake = {}, .process = {}});
  EXPECT_EQ(config->lastMemberQueryCount(), 0u);
  EXPECT_EQ(errorOf([](QuerierSettings& s) {
              s.add("lastMemberQueryCount", "3");
              s.add("immediateLeave", "on");
            }),
            "--immediate-leave on: gives --last-member-query-count a second value");
}

TEST(QuerierSettings, prefixesMakeTheBoundary) {
  QuerierSettings settings;
  EXPECT_FALSE(settings.boundary());
  settings.boundaryAdd("239.0.0.0/8");
  settings.boundaryAdd("ff05::/16");
  EXPECT_EQ(settings.boundary()->boundary().size(), 2u);
}

}  // namespace
}  // namespace Agent
