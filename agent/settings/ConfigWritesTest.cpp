#include <Settings/ConfigWrites.h>

#include <vector>

#include <gtest/gtest.h>

#include <Intake/IntakeConfig.h>
#include <Settings/SettingText.h>

namespace Agent {
namespace {

using Mox::NboAttrLog::Written;

// Why the default configuration refuses these values together; empty when it does not.
std::string refusalOf(std::vector<Written> values) {
  return whyConfigRefused(*Gmp::Igmp::querierConfigFactory("eth0"), values);
}

// As another process may send it: of the right type, and with no judgement made.
Written written(std::string_view attribute, Mox::Value value) {
  return {readSetting(attribute, attribute, attribute == "sendQuery" ? "on" : "1").attr,
          std::move(value)};
}

TEST(ConfigWrites, valuesOutsideTheirRangeAreRefused) {
  EXPECT_EQ(refusalOf({written("robustness", Mox::U64{9})}),
            "robustness 9: must be from 1 to 7 (RFC 3376 8.1)");
  EXPECT_EQ(refusalOf({written("queryInterval", 0.0)}),
            "queryInterval 0: must be from 1 to 31744 (RFC 3376 8.2)");
  EXPECT_EQ(refusalOf({written("queryInterval", Mox::never)}),
            "queryInterval inf: must be from 1 to 31744 (RFC 3376 8.2)");
  EXPECT_EQ(refusalOf({written("sendQuery", false)}), "");
}

TEST(ConfigWrites, zeroIsTakenWhereItHasAMeaningOfItsOwn) {
  EXPECT_EQ(refusalOf({written("startupQueryInterval", 0.0)}), "");
}

TEST(ConfigWrites, aValueThatContradictsAnotherSettingIsNamed) {
  EXPECT_EQ(refusalOf({written("queryInterval", 10.0)}),
            "queryInterval 10: must be more than the query response interval, 10 seconds (RFC 3376 "
            "8.3)");
  EXPECT_EQ(refusalOf({written("queryResponseInterval", 125.0)}),
            "queryResponseInterval 125: must be less than the query interval, 125 seconds (RFC "
            "3376 8.3)");
  EXPECT_EQ(refusalOf({written("lastMemberQueryInterval", 26.0)}),
            "lastMemberQueryInterval 26: must be from 0.1 to 25.5 in version 2 (RFC 2236 2.2)");
}

TEST(ConfigWrites, valuesAreJudgedWithThoseThatComeWithThem) {
  EXPECT_EQ(refusalOf({written("queryInterval", 5.0), written("queryResponseInterval", 2.0)}), "");
  EXPECT_EQ(
      refusalOf({written("lastMemberQueryInterval", 26.0), written("querierVersion", Mox::U64{3})}),
      "");
}

TEST(ConfigWrites, valuesOfAnIntakeHaveTheirRanges) {
  const auto intake = Mox::makePtr<IntakeConfig>("eth0");
  const Written most{intake->type().attr("maxGroups"), Mox::U64{16777216}};
  const Written tooMany{intake->type().attr("maxGroups"), Mox::U64{16777217}};
  EXPECT_EQ(whyConfigRefused(*intake, std::vector{most}), "");
  EXPECT_EQ(whyConfigRefused(*intake, std::vector{most, tooMany}),
            "maxGroups: must be a whole number from 1 to 16777216");
}

}  // namespace
}  // namespace Agent
