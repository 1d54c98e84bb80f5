#include <Options/Options.h>

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ilvo/IpPrefix.h>

#include <Settings/SettingRules.h>
#include <Settings/SettingText.h>
#include <CLI/CLI.hpp>

namespace Igmpq {
namespace {

using Agent::isSetting;
using Agent::QuerierSettings;

using Gmp::Igmp::QuerierConfig;
using Mox::Ptr;
using testing::StartsWith;

// One command line: the configuration that it gives, or how it is refused.
class Line {
 public:
  explicit Line(std::vector<std::string> arguments) {
    addSettings(app_, settings_);
    std::reverse(arguments.begin(), arguments.end());
    try {
      app_.parse(arguments);
      settings_.apply({.config = config_, .intake = intake_, .process = {}});
    } catch (const CLI::Error& error) {
      refusal_ = error.what();
    }
  }

  const std::string& refusal() const { return refusal_; }
  const QuerierConfig& config() const { return *config_; }
  const Agent::IntakeConfig& intake() const { return *intake_; }
  const QuerierSettings& settings() const { return settings_; }

 private:
  CLI::App app_;
  QuerierSettings settings_;
  Ptr<Agent::IntakeConfig> intake_ = Mox::makePtr<Agent::IntakeConfig>("eth0");
  Ptr<QuerierConfig> config_ = Gmp::Igmp::querierConfigFactory("eth0");
  std::string refusal_;
};

struct Limits {
  const char* option;
  const char* below;
  const char* least;
  const char* most;
  const char* above;
  const char* must;
};

const std::vector<Limits>& limits() {
  static const std::vector<Limits> all{
      {"--robustness", "0", "1", "7", "8", "must be from 1 to 7 (RFC 3376 8.1)"},
      {"--query-interval", "0.9", "1", "31744", "31744.1",
       "must be from 1 to 31744 (RFC 3376 8.2)"},
      {"--query-response-interval", "0.09", "0.1", "3174.4", "3174.5",
       "must be from 0.1 to 3174.4 (RFC 3376 8.3)"},
      {"--startup-query-interval", "0.9", "1", "31744", "31744.1",
       "must be 0 (a quarter of the query interval) or from 1 to 31744 (RFC 3376 8.6)"},
      {"--startup-query-count", "0", "1", "255", "256", "must be from 1 to 255 (RFC 3376 8.7)"},
      {"--last-member-query-interval", "0.09", "0.1", "3174.4", "3174.5",
       "must be from 0.1 to 3174.4 (RFC 3376 8.8)"},
      {"--last-member-query-count", "-1", "0", "255", "256",
       "must be from 0 to 255 (RFC 3376 8.9)"},
      {"--querier-version", "0", "1", "3", "4", "must be from 1 to 3 (RFC 3376 7)"},
  };
  return all;
}

Line lineWith(const std::string& option, const std::string& value) {
  std::vector<std::string> arguments{option, value};
  if (option == "--query-interval") {
    arguments.insert(arguments.end(), {"--query-response-interval", "0.5"});
  } else if (option == "--query-response-interval") {
    arguments.insert(arguments.end(), {"--query-interval", "31744"});
  } else if (option == "--last-member-query-interval") {
    arguments.insert(arguments.end(), {"--querier-version", "3"});
  }
  return Line(arguments);
}

TEST(SettingOptions, takeBothEndsOfEachRange) {
  for (const Limits& limit : limits()) {
    for (const char* value : {limit.least, limit.most}) {
      EXPECT_EQ(lineWith(limit.option, value).refusal(), "") << limit.option << " " << value;
    }
  }
}

TEST(SettingOptions, refuseValuesOutsideAndNameTheRange) {
  for (const Limits& limit : limits()) {
    for (const std::string value : {limit.below, limit.above}) {
      EXPECT_EQ(lineWith(limit.option, value).refusal(),
                std::string(limit.option) + " " + value + ": " + limit.must);
    }
  }
}

TEST(SettingOptions, refuseTextThatIsNoNumber) {
  for (const Limits& limit : limits()) {
    for (const std::string value : {"abc", "nan", "inf", "1,5", "1s"}) {
      EXPECT_THAT(lineWith(limit.option, value).refusal(),
                  StartsWith(std::string(limit.option) + " " + value + ": not a "));
    }
  }
}

TEST(SettingOptions, refuseAnEmptyValue) {
  for (const Limits& limit : limits()) {
    EXPECT_THAT(lineWith(limit.option, "").refusal(), StartsWith(limit.option)) << limit.option;
  }
}

TEST(SettingOptions, theLimitsAboveAreThoseOfEveryNumberInTheTable) {
  size_t numbers = 0;
  QuerierConfig::attributes.forEach([&](Mox::AttrId, const auto& row) {
    if constexpr (isSetting<decltype(row)>) {
      const Ptr<QuerierConfig> config = Gmp::Igmp::querierConfigFactory("");
      using V = std::remove_cvref_t<decltype((*config).*row.member)>;
      if (!std::is_same_v<V, bool>) ++numbers;
    }
  });
  EXPECT_EQ(limits().size(), numbers);
}

TEST(SettingOptions, reachTheConfiguration) {
  const Line line({"--robustness",
                   "3",
                   "--query-interval",
                   "60",
                   "--query-response-interval",
                   "5.5",
                   "--startup-query-interval",
                   "7",
                   "--startup-query-count",
                   "4",
                   "--last-member-query-interval",
                   "0.5",
                   "--querier-version",
                   "3",
                   "--last-member-query-count",
                   "0",
                   "--add-random-delay-to-timer",
                   "on",
                   "--send-query",
                   "off"});
  ASSERT_EQ(line.refusal(), "");
  const QuerierConfig& config = line.config();
  EXPECT_EQ(config.robustness(), 3u);
  EXPECT_EQ(config.queryInterval(), 60.0);
  EXPECT_EQ(config.queryResponseInterval(), 5.5);
  EXPECT_EQ(config.startupQueryInterval(), 7.0);
  EXPECT_EQ(config.startupQueryCount(), 4u);
  EXPECT_EQ(config.lastMemberQueryInterval(), 0.5);
  EXPECT_EQ(config.querierVersion(), Gmp::Igmp::igmpVersion3);
  EXPECT_EQ(config.lastMemberQueryCount(), 0u);
  EXPECT_TRUE(config.addRandomDelayToTimer());
  EXPECT_FALSE(config.sendQuery());
}

TEST(SettingOptions, reachTheIntake) {
  const Line line(
      {"--max-groups", "1000", "--permitted-queriers", "10.0.0.1,10.0.0.2", "--ttl-one", "off"});
  ASSERT_EQ(line.refusal(), "");
  EXPECT_EQ(line.intake().maxGroups(), 1000u);
  EXPECT_EQ(line.intake().permittedQueriers(), Agent::PrefixList("10.0.0.1,10.0.0.2"));
  EXPECT_FALSE(line.intake().ttlOne());
  EXPECT_EQ(line.intake().maxSources(), 262144u);
}

TEST(SettingOptions, ofTheIntakeAreRefusedByTheirRanges) {
  EXPECT_EQ(Line({"--max-groups", "0"}).refusal(),
            "--max-groups 0: must be a whole number from 1 to 16777216");
  EXPECT_EQ(Line({"--local-queries", "yes"}).refusal(), "--local-queries yes: must be on or off");
}

TEST(SettingOptions, setAttributesThatWereNotGivenToTheirDefaults) {
  const Ptr<QuerierConfig> config = Gmp::Igmp::querierConfigFactory("eth0");
  config->robustnessIs(7);
  QuerierSettings().apply({.config = config, .intake = {}, .process = {}});
  EXPECT_EQ(config->robustness(), 2u);
}

TEST(SettingOptions, aStartupIntervalOfZeroStandsForAQuarterOfTheQueryInterval) {
  const Line line({"--startup-query-interval", "0"});
  EXPECT_EQ(line.refusal(), "");
  EXPECT_EQ(line.config().startupQueryInterval(), 0.0);
}

TEST(SettingOptions, flagsAreOnOrOff) {
  EXPECT_EQ(Line({"--send-query", "on"}).refusal(), "");
  EXPECT_EQ(Line({"--send-query", "yes"}).refusal(), "--send-query yes: must be on or off");
}

TEST(SettingOptions, theResponseIntervalMustBeLessThanTheQueryInterval) {
  EXPECT_EQ(Line({"--query-interval", "20", "--query-response-interval", "19.9"}).refusal(), "");
  EXPECT_EQ(
      Line({"--query-interval", "20", "--query-response-interval", "20"}).refusal(),
      "--query-response-interval 20: must be less than the query interval, 20 seconds (RFC 3376 "
      "8.3)");
}

TEST(SettingOptions, theIntervalIsNamedWhenOnlyItWasGiven) {
  EXPECT_EQ(
      Line({"--query-interval", "10"}).refusal(),
      "--query-interval 10: must be more than the query response interval, 10 seconds (RFC 3376 "
      "8.3)");
}

TEST(SettingOptions, theLastMemberIntervalOfTheOldVersionsFitsTheirQueries) {
  const char* const option = "--last-member-query-interval";
  EXPECT_EQ(Line({option, "25.5"}).refusal(), "");
  EXPECT_EQ(Line({option, "25.6"}).refusal(),
            "--last-member-query-interval 25.6: must be from 0.1 to 25.5 in version 2 (RFC 2236 "
            "2.2)");
  EXPECT_EQ(Line({option, "25.6", "--querier-version", "1"}).refusal(),
            "--last-member-query-interval 25.6: must be from 0.1 to 25.5 in version 1 (RFC 2236 "
            "2.2)");
  EXPECT_EQ(Line({option, "25.6", "--querier-version", "3"}).refusal(), "");
}

TEST(SettingOptions, anOptionGivenTwiceIsRefused) {
  EXPECT_NE(Line({"--robustness", "2", "--robustness", "3"}).refusal(), "");
}

TEST(SettingOptions, boundariesAreCollected) {
  const Line line({"--boundary", "239.0.0.0/8", "--boundary", "ff05::/16"});
  ASSERT_EQ(line.refusal(), "");
  const auto& boundary = line.settings().boundary();
  ASSERT_TRUE(boundary);
  EXPECT_EQ(boundary->boundary().size(), 2u);
  EXPECT_TRUE(boundary->boundary().contains(*Ilvo::IpGenPrefix::parse("239.0.0.0/8")));
}

TEST(SettingOptions, withoutABoundaryThereIsNone) { EXPECT_FALSE(Line({}).settings().boundary()); }

TEST(SettingOptions, aBoundaryThatIsNoPrefixIsRefused) {
  EXPECT_EQ(Line({"--boundary", "239.0.0.0/33"}).refusal(),
            "--boundary 239.0.0.0/33: must be a prefix such as 239.0.0.0/8 or ff05::/16");
}

TEST(NumberOption, takesTheNumberOrIsRefusedByItsRange) {
  double taken = 0.0;
  CLI::App app;
  addNumber(app, "--level", "N", {.least = -1, .most = 9, .whole = true}, "a level",
            [&](double number) { taken = number; });
  app.parse("--level -1", false);
  EXPECT_EQ(taken, -1.0);
  EXPECT_THROW(app.parse("--level 10", false), CLI::ValidationError);
  EXPECT_EQ(taken, -1.0);
}

TEST(OptionName, isTheAttributesNameInLowerCaseWithDashes) {
  EXPECT_EQ(Agent::optionName("lastMemberQueryInterval"), "--last-member-query-interval");
  EXPECT_EQ(Agent::optionName("robustness"), "--robustness");
}

// Contradictions are found when the verb's options are complete, before the verb begins.
TEST(SettingOptions, workAsTheOptionsOfASubcommand) {
  CLI::App app;
  CLI::App& run = *app.add_subcommand("run");
  QuerierSettings settings;
  addSettings(run, settings);
  EXPECT_THROW(app.parse("run --query-interval 5", false), CLI::ValidationError);
}

}  // namespace
}  // namespace Igmpq
