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
  settings.apply(*config);
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

TEST(QuerierSettings, prefixesMakeTheBoundary) {
  QuerierSettings settings;
  EXPECT_FALSE(settings.boundary());
  settings.boundaryAdd("239.0.0.0/8");
  settings.boundaryAdd("ff05::/16");
  EXPECT_EQ(settings.boundary()->boundary().size(), 2u);
}

}  // namespace
}  // namespace Agent
