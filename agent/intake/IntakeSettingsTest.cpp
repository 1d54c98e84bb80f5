// Ranges and texts of the settings, lists of prefixes, and the entities' tables.
#include <Intake/IntakeSettings.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Intake/IntakeConfig.h>
#include <Intake/IntakeProcess.h>
#include <Intake/IntakeStatus.h>
#include <Intake/PrefixList.h>
#include <Intake/QueryBudget.h>
#include <Mox/ActivityClock.h>
#include <Mox/Errors.h>
#include <Mox/GenericAccess.h>

namespace Agent {
namespace {

using Ilvo::IpAddr;
using Mox::U64;
using Mox::Value;

std::string problemWith(const char* attribute, std::string_view text) {
  try {
    intakeValueOf(*intakeSetting(attribute), text);
  } catch (const Mox::RangeError& error) {
    return error.what();
  }
  return "none";
}

TEST(IntakeSettings, numbersHaveRanges) {
  EXPECT_EQ(intakeValueOf(*intakeSetting("maxGroupRecords"), "1"), Value(U64{1}));
  EXPECT_EQ(intakeValueOf(*intakeSetting("maxGroupRecords"), "8192"), Value(U64{8192}));
  for (const char* text : {"0", "8193", "-1", "16.5", "many", "", "16 ", "99999999999999999999"}) {
    EXPECT_EQ(problemWith("maxGroupRecords", text), "must be a whole number from 1 to 8192")
        << text;
  }
}

TEST(IntakeSettings, flagsAreOnOrOff) {
  EXPECT_EQ(intakeValueOf(*intakeSetting("ttlOne"), "on"), Value(true));
  EXPECT_EQ(intakeValueOf(*intakeSetting("ttlOne"), "off"), Value(false));
  EXPECT_EQ(problemWith("ttlOne", "1"), "must be on or off");
}

TEST(IntakeSettings, prefixesAreWrittenBetweenCommas) {
  const IntakeSetting& setting = *intakeSetting("permittedQueriers");
  EXPECT_EQ(intakeValueOf(setting, "10.1.2.3/8,192.0.2.1"),
            Value(std::string("10.0.0.0/8,192.0.2.1/32")));
  EXPECT_EQ(intakeValueOf(setting, "all"), Value(std::string()));
  EXPECT_NE(problemWith("permittedQueriers", ""), "none");
  EXPECT_EQ(problemWith("permittedQueriers", "10.0.0.0/33"),
            "'10.0.0.0/33' is no IPv4 prefix such as 10.0.0.0/8");
}

TEST(IntakeSettings, eachSettingIsWrittenThroughItsTable) {
  const auto config = Mox::makePtr<IntakeConfig>("eth0");
  for (const IntakeSetting& setting : intakeSettings) {
    const auto* attr = config->type().attr(setting.attribute);
    if (attr == nullptr) continue;  // of the process
    const Value value = setting.value == IntakeValue::flag
                            ? Value(attrValue(*config, attr->id) == Value(false))
                        : setting.value == IntakeValue::number ? Value(U64{setting.least})
                                                               : Value(std::string("10.0.0.0/8"));
    EXPECT_EQ(refusalReason(*attr, value), std::nullopt) << setting.attribute;
    EXPECT_TRUE(attrValueIs(*config, attr->id, value)) << setting.attribute;
    EXPECT_EQ(attrValue(*config, attr->id), value) << setting.attribute;
  }
}

TEST(IntakeSettings, valueOfAnotherProcessIsCheckedFirst) {
  const auto config = Mox::makePtr<IntakeConfig>("eth0");
  const auto reason = [&](const char* attribute, const Value& value) {
    return refusalReason(*config->type().attr(attribute), value).value_or("none");
  };
  EXPECT_EQ(reason("maxGroups", U64{16777216}), "none");
  EXPECT_EQ(reason("maxGroups", U64{16777217}), "must be a whole number from 1 to 16777216");
  EXPECT_EQ(reason("maxGroups", true), "must be a whole number from 1 to 16777216");
  EXPECT_EQ(reason("leastReportVersion", U64{0}), "must be a whole number from 1 to 3");
  EXPECT_EQ(reason("ttlOne", U64{1}), "must be on or off");
  EXPECT_EQ(reason("acceptedGroups", std::string("239.0.0.0/8,")),
            "a comma without a prefix behind it");
  EXPECT_NE(reason("acceptedGroups", U64{1}), "none");
  EXPECT_EQ(reason("name", std::string("eth1")), "cannot be set");
}

TEST(PrefixList, matchesItsPrefixes) {
  const PrefixList list("10.0.0.0/8,192.0.2.1,239.255.0.0/16");
  EXPECT_TRUE(list.contains(IpAddr(10, 255, 255, 255)));
  EXPECT_FALSE(list.contains(IpAddr(11, 0, 0, 0)));
  EXPECT_TRUE(list.contains(IpAddr(192, 0, 2, 1)));
  EXPECT_FALSE(list.contains(IpAddr(192, 0, 2, 2)));
  EXPECT_TRUE(PrefixList("0.0.0.0/0").contains(IpAddr(1, 2, 3, 4)));
  EXPECT_FALSE(PrefixList().contains(IpAddr()));
  EXPECT_TRUE(PrefixList().allows(IpAddr()));
}

TEST(PrefixList, networkAndBroadcastAddressAreNoHosts) {
  const PrefixList list("10.0.0.5/24");
  EXPECT_TRUE(list.containsHost(IpAddr(10, 0, 0, 1)));
  EXPECT_TRUE(list.containsHost(IpAddr(10, 0, 0, 254)));
  EXPECT_FALSE(list.containsHost(IpAddr(10, 0, 0, 0)));
  EXPECT_FALSE(list.containsHost(IpAddr(10, 0, 0, 255)));
  EXPECT_FALSE(list.containsHost(IpAddr(10, 0, 1, 1)));
  EXPECT_TRUE(PrefixList("10.0.0.0/31").containsHost(IpAddr(10, 0, 0, 0)));
  EXPECT_TRUE(PrefixList("10.0.0.1/32").containsHost(IpAddr(10, 0, 0, 1)));
}

TEST(PrefixList, refusesWhatIsNoListOfPrefixes) {
  for (const char* text : {",", "10.0.0.0/8,", ",10.0.0.0/8", "::/0", "10.0.0.0/8 ", "ten"}) {
    EXPECT_THROW(PrefixList{text}, Mox::RangeError) << text;
  }
  std::string many = "10.0.0.0/16";
  for (int i = 1; many.size() + 13 <= PrefixList::longestText; ++i) {
    many += ",10." + std::to_string(i) + ".0.0/16";
  }
  EXPECT_NO_THROW(PrefixList{many});
  EXPECT_THROW(PrefixList{many + ",11.0.0.0/16"}, Mox::RangeError);
}

TEST(PrefixList, hasEachPrefixOnce) {
  PrefixList list("10.0.0.5/24,10.0.0.7/24");
  list.add(IpAddr(10, 0, 0, 9), 24);
  list.add(IpAddr(10, 0, 1, 9), 24);
  EXPECT_EQ(list.string(), "10.0.0.0/24,10.0.1.0/24");
}

TEST(IntakeStatus, countsEachRuleInItsOwnAttribute) {
  const auto status = Mox::makePtr<IntakeStatus>("eth0");
  for (const IntakeRuleName& rule : intakeRules) {
    EXPECT_EQ(status->countedInc(rule.rule, 3), 3u);
    EXPECT_EQ(attrValue(*status, rule.name), Value(U64{3})) << rule.name;
    EXPECT_EQ(status->countedInc(rule.rule, 1), 4u);
    EXPECT_EQ(status->counted(rule.rule), 4u);
  }
}

TEST(IntakeStatus, notifiesOfCountersAndMarks) {
  class Watch final : public IntakeStatus::NotifieeConst {
   public:
    using NotifieeConst::NotifieeConst;
    void onCounter() override { seen += "counter "; }
    void onMark() override { seen += "mark "; }
    std::string seen;
  };
  const auto status = Mox::makePtr<IntakeStatus>("eth0");
  Watch watch(status);
  status->countedInc(IntakeRule::queryLimit, 1);
  status->groupsMostIs(5);
  status->groupsMostIs(4);
  EXPECT_EQ(watch.seen, "counter mark ");
  EXPECT_EQ(status->groupsMost(), 5u);
}

TEST(QueryBudget, refillsWithTime) {
  Mox::virtualTimeIs(1000.0);
  QueryBudget budget;
  EXPECT_TRUE(budget.take(20, 10, 20));
  EXPECT_FALSE(budget.take(1, 10, 20));
  Mox::virtualTimeIs(1000.1);
  EXPECT_TRUE(budget.take(1, 10, 20));
  EXPECT_FALSE(budget.take(1, 10, 20));
  Mox::virtualTimeIs(2000.0);
  EXPECT_TRUE(budget.take(20, 10, 20));
  EXPECT_FALSE(budget.take(1, 10, 20));
  EXPECT_EQ(budget.used(), 20u);
  EXPECT_TRUE(budget.take(1, 10, 21));  // the burst was raised
  Mox::realTimeIs();
}

}  // namespace
}  // namespace Agent
